#pragma once
#include <QString>

// Program-wide state: one instance, owned by the main window, lives as long as the program.
// Read and written only on the user-interface thread.
struct AppState {
    bool StopRequested = false;
    bool TransactionDone = false;
    qint32 TransportError = 0;      // -1 after the server reported "LIMIT EXCEEDED"
    qint32 SecondsTick = 0;
    bool QuietMode = false;
    bool PostingAllowed = false;
    QString LastTransportText;
    QString CurrentGroup;
    QString LastFailureReason;
    QString FavoritesShortName;

    // session
    QString ServerUserId;
    QString ServerPassword;
    QString ServerFileTag;
    bool ConnectingFlag = false;

    // listing
    qint64 FirstArticle = 0;
    qint64 LastArticle = 0;
    int CurrentRow = 1;
    int FirstGroupWithMessages = -1;

    // downloading
    QString MessageText;
    QString AttachmentName;
    QString TempFileName;
    bool IsMimeAttachment = false;
    bool IsUuencoded = false;
    bool IsYenc = false;
    bool DownloadBusy = false;
    bool ScanMode = false;
    QString OutputFileName;
};
