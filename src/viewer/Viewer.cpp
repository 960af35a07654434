#include "viewer/Viewer.h"

#include "app/Paths.h"
#include "app/Shell.h"
#include "download/Downloader.h"
#include "download/FileNames.h"
#include "messages/MessageGrid.h"
#include "news/Session.h"

#include "download/decoder/DecoderWizard.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QRandomGenerator>

namespace {
// The decoder's format codes.
constexpr int FormatMime = 0;
constexpr int FormatUuencode = 2;
constexpr int FormatYenc = 3;
} // namespace

Viewer::Viewer(Shell &shell, NewsSession &newsSession, MessageGrid &messageGrid, QItemSelectionModel &selection,
               Downloader &dl, QObject *parent)
    : QObject(parent), sh(shell), session(newsSession), grid(messageGrid), gridSelection(selection), downloader(dl)
{
    qRegisterMetaType<ViewedMessage>();
    m_decoder = new DecoderWizard(this);
    sh.wireCommand(QStringLiteral("menuView"), [this] { msgActivate(); });
}

QString Viewer::destDir() const
{
    return nd::withTrailingSlash(sh.opt.DestDir);
}

int Viewer::selectionEndRow() const
{
    const QModelIndex cur = gridSelection.currentIndex();
    if (cur.isValid())
        return cur.row() + 1;
    int end = 0;
    for (const QModelIndex &i : gridSelection.selectedRows())
        end = qMax(end, i.row() + 1);
    return end;
}

void Viewer::messageCommands(bool on)
{
    for (nd::Cmd c : nd::cmds::MessageWork)
        sh.SetMenuState(c, on);
    sh.MenuOnOff(nd::Scope::CurrentGroup, on);
    sh.MenuOnOff(nd::Scope::SelectedMessages, on);
}

void Viewer::windowClosed()
{
    messageCommands(true);
}

ViewedMessage Viewer::rowMessage(int row) const
{
    ViewedMessage msg;
    msg.articleNumber = grid.cell(row, MessageGrid::ColArticle).trimmed().toLongLong();
    msg.subject = grid.cell(row, MessageGrid::ColSubject);
    msg.date = grid.cell(row, MessageGrid::ColDate);
    msg.sender = grid.cell(row, MessageGrid::ColFrom);
    msg.messageId = grid.cell(row, MessageGrid::ColMessageId);
    msg.references = grid.cell(row, MessageGrid::ColReferences);
    return msg;
}

void Viewer::msgActivate()
{
    const int row = selectionEndRow();
    if (row < 1 || row >= grid.Rows())
        return;
    if (sh.S.DownloadBusy || session.transactionRunning() || m_loading) {
        sh.setStatus(nd::PanelDetail, QStringLiteral("Please wait until current transaction is finished"));
        return;
    }
    if (grid.cell(row, MessageGrid::ColArticle).trimmed().isEmpty())
        return;

    messageCommands(false);
    ViewedMessage msg = rowMessage(row);
    emit messageOpening(msg);
    if (!load(msg))
        messageCommands(true);
}

// The picture of the article's attachment, decoded straight into the picture file: a file the
// user saved under the attachment's name is never touched by viewing. failed: the article has an
// attachment that gave no picture.
QString Viewer::decodePicture(const QString &tempFile, ArticleFetch::Kind kind, bool &failed)
{
    const QString picture = destDir() + PictureFileName;
    if (QFileInfo::exists(picture))
        QFile::remove(picture);
    failed = false;
    if (kind == ArticleFetch::Kind::None)
        return QString();
    const int format = kind == ArticleFetch::Kind::Yenc       ? FormatYenc
                       : kind == ArticleFetch::Kind::Uuencode ? FormatUuencode
                                                              : FormatMime;
    const DecodeOutcome decoded = decodeAndWait(*m_decoder, destDir() + tempFile, picture, format, true);
    if (!decoded.ok() && !decoded.outputPath.isEmpty() && decoded.outputPath != picture)
        QFile::remove(decoded.outputPath);   // a damaged picture is not kept
    if (decoded.ok() && QFileInfo::exists(picture))
        return picture;
    failed = true;
    return QString();
}

// Fetches the article into a part file of its own and decodes its picture. False when there is
// nothing to show (or the attachment gave no picture); TransportError tells which.
bool Viewer::load(ViewedMessage &msg)
{
    sh.setViewEnabled(nd::View::Messages, false);
    sh.S.StopRequested = false;
    sh.setBusy(true);
    sh.S.IsMimeAttachment = false;
    sh.S.IsYenc = false;
    sh.S.IsUuencoded = false;
    sh.S.AttachmentName.clear();
    m_loading = true;

    const QString dest = destDir();
    QDir().mkpath(dest);
    QRandomGenerator rng(quint32(QDateTime::currentMSecsSinceEpoch()));
    sh.S.TempFileName = nd::nextTempFileName([&rng] { return rng.generateDouble(); }, [dest](const QString &n) {
        return QFileInfo::exists(dest + n) || QFileInfo::exists(nd::appFile(n));
    });

    const ArticleFetch fetch = downloader.NNTP_DownloadMessage(msg.articleNumber);
    if (fetch.ok()) {
        sh.setStatus(nd::PanelState, QStringLiteral("Done"));
        sh.setStatus(nd::PanelDetail, QString());
    }
    m_loading = false;
    sh.setBusy(false);

    bool shown = false;
    if (fetch.ok()) {
        msg.text = fetch.text;
        bool pictureFailed = false;
        msg.picturePath = decodePicture(sh.S.TempFileName, fetch.kind, pictureFailed);
        sh.S.TransportError = pictureFailed ? -1 : 0;
        emit messageLoaded(msg);
        // a picture that failed to decode still leaves the text shown: the commands stay off
        // until the viewer closes
        shown = true;
    }

    // the article's part file served only this view
    const QString part = dest + sh.S.TempFileName;
    if (!sh.S.TempFileName.isEmpty() && QFileInfo::exists(part))
        QFile::remove(part);
    sh.S.TempFileName.clear();
    sh.setViewEnabled(nd::View::Messages, true);
    return shown;
}

void Viewer::step(int delta)
{
    const int end = selectionEndRow();
    const int target = end + delta;
    if (end < 1 || target < 1 || target > grid.lastMessageRow())
        return;
    gridSelection.setCurrentIndex(grid.index(target - 1, 0),
                                  QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    emit rowShown(target);
    msgActivate();
}
