#pragma once
#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVector>

class frmMain;
class DecoderWizard;
struct NewsTransportMessage;

// Downloading: one article at a time (NNTP_DownloadMessage), all parts of a post joined in a
// temporary file and decoded into the download directory (DownloadRows), and the commands that
// lead there (Download from selected messages, Download All).
class Downloader : public QObject {
    Q_OBJECT
public:
    explicit Downloader(frmMain &m);
    ~Downloader() override;

    // Fetches one article of the current group. Outcome in the main window's MessageText, the kind
    // flags, AttachmentName, DuplicateFound and TransportError; with an attachment name known,
    // the article's text is appended to the set's temporary file.
    void NNTP_DownloadMessage(qint64 articleNumber);
    // The attachment name of the fetched text (MessageText and the kind flags).
    void GetFilename();

    // Downloads the set of one grid row, or of every row with -1.
    void DownloadRows(int row);
    // The selected rows of the grid (right button or the Download command).
    void DownloadSelected();
    // Every row of the grid (F2 or the Download All command).
    void DownloadAll();

    // Appends the bytes and CR LF to DownloadDir + TempFileName. False when it cannot be written.
    bool AppendToTempFile(const QByteArray &bytes);
    // all: every temporary file of the application directory and the program's own ones in the
    // download directory; otherwise the current TempFileName in both places.
    void CleanTempFiles(bool all);

    bool DuplicateFound = false;
    qint32 PartCount = 0;
    QVector<qint64> PartNumbers;     // index 0 unused
    // The bytes of the last fetched article's text as they go into the temporary file.
    QByteArray MessageBytes;

signals:
    // A decoded file joined the saved-files list (full path).
    void fileSaved(const QString &path);

private:
    void runningCommands(bool running);
    class GridRows;
    void buildMessage(const NewsTransportMessage &msg, QByteArray &text, QByteArray &textPart);
    bool decodeSet(const QString &name);
    void addSavedFile(const QString &path);
    void switchCommands(bool on);
    // Refreshing a list or opening another group while a download runs would pull the rows
    // from under it: those commands and the group list are off until the outermost run ends.
    void holdLists(bool hold);
    void setFavoritesEnabled(bool on);
    void gridRedraw(bool on);
    QString destDir() const;

    frmMain &m;
    DecoderWizard *m_decoder = nullptr;
    GridRows *m_rows = nullptr;      // subjects of the grid, read once per run
    bool m_textIsLatin1 = false;     // MessageText was not valid UTF-8
    int m_holdDepth = 0;
    QList<bool> m_heldStates;        // the held commands' states before the run
    bool m_groupsViewWasOn = true;
};
