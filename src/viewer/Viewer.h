#pragma once
#include "download/Downloader.h"

#include <QMetaType>
#include <QObject>
#include <QString>

class DecoderWizard;
class MessageGrid;
class NewsSession;
class QItemSelectionModel;
class Shell;

// One message as the viewer shows it: the row's fields, then the article's text and picture.
struct ViewedMessage {
    qint64 articleNumber = 0;
    QString subject;
    QString date;
    QString sender;
    QString messageId;          // for a reply that threads under the message
    QString references;
    QString text;               // the article's text (the window shows at most its first part)
    QString picturePath;        // the attachment decoded into "~image2.tmp"; empty when none
};
Q_DECLARE_METATYPE(ViewedMessage)

// Opening messages of the grid: the View command (also the grid's double-click and Enter), and
// the viewer's Next and Previous. The article is fetched, a picture attachment decoded into
// "~image2.tmp", and the message handed to the window (messageLoaded).
class Viewer : public QObject {
    Q_OBJECT
public:
    static inline const QString PictureFileName = QStringLiteral("~image2.tmp");

    Viewer(Shell &sh, NewsSession &session, MessageGrid &grid, QItemSelectionModel &gridSelection,
           Downloader &downloader, QObject *parent = nullptr);

    // Opens the grid's selection-end row.
    void msgActivate();
    // Moves the selection-end row by delta (+1 Next, -1 Previous) and opens that row; nothing
    // happens beyond the first or the last message row.
    void step(int delta);
    // The selection-end row of the grid (grid numbering, 0 when there is none).
    int selectionEndRow() const;
    bool loading() const { return m_loading; }
    // The viewer's window went away: the message commands are back.
    void windowClosed();

signals:
    // A row is being opened: its fields, before the article is fetched.
    void messageOpening(const ViewedMessage &message);
    // The article came: its text and picture.
    void messageLoaded(const ViewedMessage &message);
    // The grid's view brings this row into sight.
    void rowShown(int row);

private:
    void messageCommands(bool on);
    ViewedMessage rowMessage(int row) const;
    bool load(ViewedMessage &message);
    QString decodePicture(const QString &tempFile, ArticleFetch::Kind kind, bool &failed);
    QString destDir() const;

    Shell &sh;
    NewsSession &session;
    MessageGrid &grid;
    QItemSelectionModel &gridSelection;
    Downloader &downloader;
    DecoderWizard *m_decoder = nullptr;
    bool m_loading = false;
};
