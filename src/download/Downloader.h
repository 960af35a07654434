#pragma once
#include "app/CommandHold.h"
#include "news/Session.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVector>

class DecoderWizard;
class MessageGrid;
class QItemSelectionModel;
class Shell;
struct NewsTransportMessage;

// What one article fetch brought: the outcome, the text to show, the bytes that went (or would
// go) into the set's temporary file, the attachment's kind and name.
struct ArticleFetch {
    enum class Kind { None, Mime, Uuencode, Yenc };

    // The outcome of the last transaction (the group selection or the article). A fetch that
    // never reached the server (Stop, no connection) reads Failed or Stopped with no status.
    TransactionResult result;
    // 0 when the article was read and kept; otherwise -1 (no connection, article gone), 255 (the
    // temporary file could not be written) or the transport's error.
    int error = 0;
    QString text;               // what the viewer shows ("{binary attachment}" for the bytes)
    QByteArray bytes;           // the article's text as it goes into the temporary file
    Kind kind = Kind::None;     // of the set so far (a yEnc set stays yEnc after its first part)
    QString attachmentName;     // empty when none was found
    bool duplicate = false;     // a file of the attachment's name is in the download directory
    bool gone = false;          // "Message no longer available on server."

    bool ok() const { return error == 0; }
};

// What a finished decode reports.
struct DecodeOutcome {
    int error = 0;              // decoder::Error..., 0 when the file was written
    QString errorText;
    QString outputPath;         // the file written (also after some errors)
    bool ok() const { return error == 0; }
};

// Runs one decode and waits (in the event loop) for the decoder's own completion.
DecodeOutcome decodeAndWait(DecoderWizard &decoder, const QString &input, const QString &output, int format,
                            bool overwrite);

// Downloading: one article at a time (NNTP_DownloadMessage), all parts of a post joined in a
// temporary file and decoded into the download directory (DownloadRows), and the commands that
// lead there (Download from selected messages, Download All).
class Downloader : public QObject {
    Q_OBJECT
public:
    Downloader(Shell &sh, NewsSession &session, MessageGrid &grid, QItemSelectionModel &gridSelection,
               QObject *parent = nullptr);
    ~Downloader() override;

    // Fetches one article of the current group and returns what it brought. The program-wide
    // state shows it too (MessageText, the kind flags, AttachmentName, TransportError). The
    // attachment name is looked for while AttachmentName is empty (the first part of a set);
    // with a name known and a TempFileName set, the article's text is appended to the set's
    // temporary file.
    ArticleFetch NNTP_DownloadMessage(qint64 articleNumber);

    // Downloads the set of one grid row, or of every row with -1. Returns the error that ended
    // the run (0 when none; as TransportError shows it).
    int DownloadRows(int row);
    // The selected rows of the grid (right button or the Download command).
    void DownloadSelected();
    // Every row of the grid (F2 or the Download All command). Returns the error that ended the
    // run, as DownloadRows does (0 also when it did not start: nothing to download, or busy).
    int DownloadAll();

    // all: every temporary file of the application directory and the program's own ones in the
    // download directory; otherwise the current TempFileName in both places.
    void CleanTempFiles(bool all);

signals:
    // A decoded file joined the download directory (full path).
    void fileSaved(const QString &path);
    // A text that may hold web or FTP addresses (a subject or an article's text).
    void textToScan(const QString &text);
    // The grid's rows are being marked by a part search: the view need not redraw meanwhile.
    void gridMarking(bool marking);

private:
    class GridRows;
    // Refreshing a list or opening another group while a download runs would pull the rows
    // from under it: those commands and the group list are off until the outermost run ends.
    void holdLists(bool hold);
    // one article
    bool ensureConnected();
    TransactionResult fetchArticle(qint64 n);
    void buildMessage(const NewsTransportMessage &msg, QByteArray &text, QByteArray &textPart);
    void readAttachment(ArticleFetch &fetch);
    void findAttachmentName(ArticleFetch &fetch);
    QString shownText(const ArticleFetch &fetch, const QByteArray &textPart) const;
    bool AppendToTempFile(const QByteArray &bytes);
    // one set
    struct SetFetch {
        int partCount = 0;      // -1 when the set cannot be completed
        int error = 0;
        ArticleFetch last;      // the last part fetched: the set's name and kind
    };
    void beginSetRun();
    void endSetRun();
    int downloadRow(int r, bool all, int lastRow);
    int findParts(int r, const QString &subject, QVector<qint64> &numbers);
    SetFetch fetchParts(int partCount, const QVector<qint64> &numbers);
    int finishSet(const SetFetch &set);
    bool decodeSet(const QString &name, ArticleFetch::Kind kind);
    // commands
    bool busyWithOther();
    void runningCommands(bool running);
    void switchCommands(bool on);
    void setFavoritesEnabled(bool on);
    QString destDir() const;

    Shell &sh;
    NewsSession &session;
    MessageGrid &grid;
    QItemSelectionModel &gridSelection;
    DecoderWizard *m_decoder = nullptr;
    GridRows *m_rows = nullptr;      // subjects of the grid, read once per run
    int m_holdDepth = 0;
    CommandHold m_heldCommands;
    bool m_groupsViewWasOn = true;
};
