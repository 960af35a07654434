#include "download/Downloader.h"

#include "app/Paths.h"
#include "app/Shell.h"
#include "app/Wait.h"
#include "download/FileNames.h"
#include "download/PartFinder.h"
#include "harvest/AddressRules.h"
#include "messages/MessageGrid.h"
#include "news/Session.h"
#include "news/transport/NewsTransport.h"

#include "download/decoder/DecoderWizard.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QRandomGenerator>
#include <optional>

namespace {

const QString GoneText = QStringLiteral("Message no longer available on server.");
const QString MarkTaken = MessageGrid::MarkDownloaded;
const QString BusyText = QStringLiteral("Please wait until current transaction is finished");

// The decoder's format codes.
constexpr int FormatMime = 0;
constexpr int FormatUuencode = 2;
constexpr int FormatYenc = 3;

} // namespace

DecodeOutcome decodeAndWait(DecoderWizard &decoder, const QString &input, const QString &output, int format,
                            bool overwrite)
{
    bool done = false;
    const QMetaObject::Connection c = QObject::connect(&decoder, &DecoderWizard::Completed, &decoder, [&done] { done = true; });
    decoder.DecodeToFile(input, output, format, overwrite);
    if (decoder.Busy())
        nd::waitUntil([&done] { return done; });
    QObject::disconnect(c);
    return {decoder.DecodeError(), decoder.DecodeErrorText(), decoder.OutputPath()};
}

// The grid's message rows as the part search sees them; the subjects are read once per run.
class Downloader::GridRows : public nd::PartRows {
public:
    explicit GridRows(MessageGrid *g) : m_grid(g)
    {
        m_last = g->lastMessageRow();
        m_subjects.reserve(m_last);
        for (int r = 1; r <= m_last; ++r)
            m_subjects.append(g->cell(r, MessageGrid::ColSubject));
    }
    int lastRow() const override { return m_last; }
    QString subject(int row) const override { return m_subjects.at(row - 1); }
    qint64 articleNumber(int row) const override { return m_grid->cell(row, MessageGrid::ColArticle).trimmed().toLongLong(); }
    void mark(int row) override { m_grid->setCell(row, MessageGrid::ColMark, MarkTaken); }
    bool stillValid() const { return m_grid->lastMessageRow() == m_last; }

private:
    MessageGrid *m_grid;
    int m_last = 0;
    QStringList m_subjects;
};

Downloader::Downloader(Shell &shell, NewsSession &newsSession, MessageGrid &messageGrid,
                       QItemSelectionModel &selection, QObject *parent)
    : QObject(parent), sh(shell), session(newsSession), grid(messageGrid), gridSelection(selection)
{
    m_decoder = new DecoderWizard(this);

    sh.wireCommand(QStringLiteral("menuDownload"), [this] {
        sh.S.StopRequested = false;
        DownloadSelected();
    });
    sh.wireCommand(QStringLiteral("menuDownloadAll"), [this] {
        sh.S.StopRequested = false;
        DownloadAll();
    });
}

Downloader::~Downloader()
{
    delete m_rows;
}

QString Downloader::destDir() const
{
    return nd::withTrailingSlash(sh.opt.DestDir);
}

void Downloader::setFavoritesEnabled(bool on)
{
    sh.setViewEnabled(nd::View::Favorites, on);
}

// ------------------------------------------------------------------ one article

void Downloader::buildMessage(const NewsTransportMessage &msg, QByteArray &text, QByteArray &textPart)
{
    static const QByteArray crlf("\r\n");
    if (msg.MIMEVersion.isEmpty()) {
        text = msg.Body;
        return;
    }
    for (const NewsTransportHeader &h : msg.Headers)
        text += h.Name.toUtf8() + ": " + h.value.toUtf8() + crlf;
    if (msg.Parts.isEmpty()) {
        if (msg.ContentDisposition.isEmpty()) {
            text = msg.Body + crlf;
            textPart = text;
            sh.S.IsMimeAttachment = false;
        } else {
            text += msg.ContentDisposition.toUtf8() + crlf + crlf + msg.Body + crlf;
            if (!sh.S.QuietMode)
                sh.S.IsMimeAttachment = true;
        }
        return;
    }
    for (const NewsTransportPart &p : msg.Parts) {
        if (p.ContentDisposition.isEmpty() || p.ContentType == QLatin1String("text")) {
            textPart = p.Body + crlf;
        } else {
            text += p.ContentDisposition.toUtf8() + crlf + crlf + p.Body + crlf;
            if (!sh.S.QuietMode)
                sh.S.IsMimeAttachment = true;
        }
    }
}

// Connects when no session is open; false (and TransportError set) when none could be opened.
bool Downloader::ensureConnected()
{
    if (session.isConnected())
        return true;
    session.NNTP_Connect(false);
    if (session.isConnected())
        return true;
    if (sh.S.TransportError == 0)
        sh.S.TransportError = -1;
    return false;
}

// An article number means something only in its own group: a listing read from the cache has
// selected nothing on the server.
TransactionResult Downloader::fetchArticle(qint64 n)
{
    TransactionResult r;
    r.outcome = TransactionResult::Outcome::Done;
    NewsTransport *t = session.transport();
    if (!sh.S.CurrentGroup.isEmpty() && t && t->SelectedGroup().Name != sh.S.CurrentGroup) {
        const QString group = sh.S.CurrentGroup;
        r = session.runTransaction([group](NewsTransport *t) { t->SelectGroup(group); });
    }
    if (r.ok() && !sh.S.StopRequested)
        r = session.runTransaction([n](NewsTransport *t) { t->FetchArticles(n, n); });
    else if (r.ok())
        r.outcome = TransactionResult::Outcome::Stopped;
    return r;
}

void Downloader::findAttachmentName(ArticleFetch &fetch)
{
    // The rules work on text; bytes that are not UTF-8 are read as Latin-1, which keeps every
    // byte, so a UTF-8 name inside a binary article is recovered afterwards.
    const QByteArray &bytes = fetch.bytes;
    const bool utf8 = QString::fromUtf8(bytes).toUtf8() == bytes;
    const QString text = utf8 ? QString::fromUtf8(bytes) : QString::fromLatin1(bytes);
    const nd::AttachmentNameResult r =
        nd::findAttachmentName(text, sh.S.IsMimeAttachment, [this] { return sh.S.StopRequested; }, !utf8);
    if (r.yenc)
        sh.S.IsYenc = true;
    if (r.uuencoded)
        sh.S.IsUuencoded = true;
    if (!r.name.isEmpty()) {
        sh.setStatus(nd::PanelDetail, r.name);
        if (nd::nameTaken(destDir(), r.name)) {
            sh.setStatus(nd::PanelDetail, QStringLiteral("Duplicate File"));
            fetch.duplicate = true;
        }
    }
    sh.S.AttachmentName = r.name;
}

// The attachment's name (first part of a set), the MIME headers taken off, and the bytes
// appended to the set's temporary file.
void Downloader::readAttachment(ArticleFetch &fetch)
{
    if (!sh.S.QuietMode && sh.S.AttachmentName.isEmpty())
        findAttachmentName(fetch);
    if (sh.S.IsMimeAttachment) {
        const qsizetype blank = fetch.bytes.indexOf("\r\n\r\n");
        fetch.bytes = blank >= 0 ? fetch.bytes.mid(blank + 4) : QByteArray();
        if (fetch.bytes.startsWith("begin ")) {
            sh.S.IsMimeAttachment = false;
            sh.S.IsUuencoded = true;
        }
    }
    // (The transport has already undone the protocol's dot doubling at line starts.)
    // (Without a temporary file no set is being joined: a message is only being shown.)
    if (!sh.S.AttachmentName.isEmpty() && !sh.S.ScanMode && !sh.S.TempFileName.isEmpty()) {
        if (!AppendToTempFile(fetch.bytes)) {
            sh.setStatus(nd::PanelState, QStringLiteral("Unable to write ") + destDir() + sh.S.TempFileName);
            fetch.error = 255;
            sh.S.TransportError = 255;
        }
    }
}

QString Downloader::shownText(const ArticleFetch &fetch, const QByteArray &textPart) const
{
    auto before = [](const QByteArray &b, const char *marker) -> std::optional<QByteArray> {
        const qsizetype i = b.indexOf(marker);
        if (i < 0)
            return std::nullopt;
        return b.left(i).trimmed() + "{binary attachment}";
    };
    std::optional<QByteArray> shown;
    if (sh.S.IsYenc)
        shown = before(fetch.bytes, "=ybegin ");
    else if (sh.S.IsUuencoded)
        shown = before(fetch.bytes, "begin ");
    if (shown)
        return textFromBytes(*shown);
    if (!sh.S.IsYenc && !sh.S.IsUuencoded && sh.S.IsMimeAttachment)
        return textFromBytes(textPart);
    return textFromBytes(fetch.bytes);
}

ArticleFetch Downloader::NNTP_DownloadMessage(qint64 n)
{
    ArticleFetch fetch;
    sh.S.TransportError = 0;
    if (sh.S.StopRequested) {
        fetch.result.outcome = TransactionResult::Outcome::Stopped;
        return fetch;
    }
    setFavoritesEnabled(false);
    const QString reading = QStringLiteral("Reading Message #") + QString::number(n);
    sh.setStatus(nd::PanelState, reading);
    if (!ensureConnected()) {
        fetch.error = sh.S.TransportError;
        setFavoritesEnabled(true);
        return fetch;
    }

    sh.SetMenuState(nd::Cmd::Stop, true);
    sh.S.MessageText.clear();
    sh.S.SecondsTick = 0;
    sh.setStatus(nd::PanelState, reading);

    fetch.result = fetchArticle(n);
    NewsTransport *t = session.transport();
    if (!fetch.result.ok() && !fetch.result.stopped()) {
        fetch.error = fetch.result.error != 0 ? fetch.result.error : -1;
        if (sh.S.TransportError == 0)
            sh.S.TransportError = fetch.error;
        sh.setStatus(nd::PanelState, QStringLiteral("Error retrieving message."));
    } else if (!t || t->SelectedGroup().Count() == 0) {
        if (!sh.S.StopRequested) {
            // stopped before anything arrived: nothing to process; otherwise the article is gone
            sh.setStatus(nd::PanelState, GoneText);
            sh.S.MessageText = GoneText;
            sh.S.TransportError = -1;
            fetch.error = -1;
            fetch.gone = true;
            fetch.text = GoneText;
        }
    } else {
        QByteArray textPart;
        buildMessage(t->SelectedGroup().Item(0).Message, fetch.bytes, textPart);
        readAttachment(fetch);
        fetch.text = shownText(fetch, textPart);
        sh.S.MessageText = fetch.text;
        if (sh.S.ScanMode || harvest::worthScanning(fetch.text, sh.opt.SaveHTTP != 0, sh.opt.SaveFTP != 0))
            emit textToScan(fetch.text);
    }
    fetch.attachmentName = sh.S.AttachmentName;
    fetch.kind = sh.S.IsYenc                ? ArticleFetch::Kind::Yenc
                 : sh.S.IsUuencoded         ? ArticleFetch::Kind::Uuencode
                 : sh.S.IsMimeAttachment    ? ArticleFetch::Kind::Mime
                                            : ArticleFetch::Kind::None;

    sh.SetMenuState(nd::Cmd::Stop, false);
    setFavoritesEnabled(true);
    return fetch;
}

// ------------------------------------------------------------------ temporary files

bool Downloader::AppendToTempFile(const QByteArray &bytes)
{
    if (sh.S.TempFileName.isEmpty())
        return false;
    QFile f(destDir() + sh.S.TempFileName);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Append))
        return false;
    const bool ok = f.write(bytes) == bytes.size() && f.write("\r\n", 2) == 2;
    f.close();
    return ok && f.error() == QFileDevice::NoError;
}

void Downloader::CleanTempFiles(bool all)
{
    if (all) {
        nd::cleanAppTempFiles();
        nd::cleanDownloadTempFiles(destDir());
        return;
    }
    const QString name = sh.S.TempFileName;
    if (name.isEmpty() || !nd::isOwnDownloadTempName(name))
        return;
    for (const QString &path : {nd::appFile(name), destDir() + name})
        if (QFileInfo::exists(path))
            QFile::remove(path);
}

// ------------------------------------------------------------------ sets

void Downloader::switchCommands(bool on)
{
    holdLists(!on);
    for (nd::Cmd c : nd::cmds::MessageWork)
        sh.SetMenuState(c, on);
    sh.MenuOnOff(nd::Scope::CurrentGroup, on);
    sh.MenuOnOff(nd::Scope::SelectedMessages, on);
}

void Downloader::holdLists(bool hold)
{
    if (hold) {
        if (m_holdDepth++ > 0)
            return;
        m_heldCommands.hold(sh, nd::cmds::ListRebuild);
        m_groupsViewWasOn = sh.viewEnabled(nd::View::Groups);
        sh.setViewEnabled(nd::View::Groups, false);
        return;
    }
    if (m_holdDepth == 0 || --m_holdDepth > 0)
        return;
    m_heldCommands.release(sh, session.isConnected());
    if (m_groupsViewWasOn)
        sh.setViewEnabled(nd::View::Groups, true);
}

bool Downloader::decodeSet(const QString &name, ArticleFetch::Kind kind)
{
    sh.setStatus(nd::PanelState, QStringLiteral("Decoding File "));
    nd::yieldOnce();
    sh.S.TransportError = 0;
    const QString output = destDir() + name;
    int format = -1;
    switch (kind) {
    case ArticleFetch::Kind::Yenc: format = FormatYenc; break;
    case ArticleFetch::Kind::Uuencode: format = FormatUuencode; break;
    case ArticleFetch::Kind::Mime: format = FormatMime; break;
    case ArticleFetch::Kind::None: break;
    }
    DecodeOutcome decoded;
    if (format >= 0)
        // Never over an existing file, whatever happened since the name was checked.
        decoded = decodeAndWait(*m_decoder, destDir() + sh.S.TempFileName, output, format, false);
    else
        decoded.error = 255;
    if (decoded.ok()) {
        sh.setStatus(nd::PanelDetail, QString());
        if (QFileInfo::exists(output)) {
            emit fileSaved(output);
            return true;
        }
    }
    sh.setStatus(nd::PanelState, QStringLiteral("Error Decoding"));
    if (!decoded.errorText.isEmpty())
        sh.setStatus(nd::PanelDetail, decoded.errorText);
    sh.S.TransportError = 255;
    return false;
}

// While rows download: Stop on; Setup, Groups, Download, Download All and View off
// (left alone during a multi-server run, which holds the menus itself).
void Downloader::runningCommands(bool running)
{
    if (sh.S.QuietMode)
        return;
    holdLists(running);
    for (nd::Cmd c : {nd::Cmd::Setup, nd::Cmd::Groups, nd::Cmd::Download, nd::Cmd::DownloadAll, nd::Cmd::View})
        sh.SetMenuState(c, !running);
    sh.SetMenuState(nd::Cmd::Stop, running);
}

void Downloader::beginSetRun()
{
    sh.S.DownloadBusy = true;
    sh.S.IsMimeAttachment = false;
    sh.S.IsUuencoded = false;
    runningCommands(true);
    setFavoritesEnabled(false);
    sh.setProgress(sh.progressMinimum());
    sh.setStatus(nd::PanelDetail, QString());

    QDir().mkpath(destDir());
    QRandomGenerator rng(quint32(QDateTime::currentMSecsSinceEpoch()));
    CleanTempFiles(false);
    sh.S.TempFileName = nd::nextTempFileName([&rng] { return rng.generateDouble(); }, [this](const QString &n) {
        return QFileInfo::exists(destDir() + n) || QFileInfo::exists(nd::appFile(n));
    });
    sh.setBusy(true);
    delete m_rows;
    m_rows = nullptr;
}

void Downloader::endSetRun()
{
    CleanTempFiles(false);
    sh.S.TempFileName.clear();   // no set is being joined any more
    sh.setBusy(false);
    runningCommands(false);
    sh.setProgress(sh.progressMinimum());
    setFavoritesEnabled(true);
    sh.S.DownloadBusy = false;
    sh.setStatus(nd::PanelPart, QString());
}

// The part numbers of the row's set (index 0 unused); the count, or -1 when parts are missing,
// 0 after Stop.
int Downloader::findParts(int r, const QString &subject, QVector<qint64> &numbers)
{
    if (!m_rows || !m_rows->stillValid()) {
        delete m_rows;
        m_rows = new GridRows(&grid);
    }
    const nd::PartSearch found = nd::FindAllParts(subject, *m_rows, [this] { return sh.S.StopRequested; }, [this] {
        sh.setStatus(nd::PanelState, QStringLiteral("Searching for all parts of message"));
        emit gridMarking(true);
    });
    emit gridMarking(false);
    if (found.outcome == nd::PartSearch::Complete) {
        numbers = found.numbers;
        return int(found.total);
    }
    if (found.outcome == nd::PartSearch::Incomplete) {
        sh.setStatus(nd::PanelDetail, QStringLiteral("Incomplete"));
        return -1;
    }
    if (sh.S.StopRequested)
        return 0;
    numbers = {0, grid.cell(r, MessageGrid::ColArticle).trimmed().toLongLong()};
    return 1;
}

// Fetches the parts in order into the temporary file. The last fetch tells the set's name and
// kind; a part that fails ends the set (its error in the result).
Downloader::SetFetch Downloader::fetchParts(int partCount, const QVector<qint64> &numbers)
{
    SetFetch set;
    set.partCount = partCount;
    for (int i = 1; i <= partCount; ++i) {
        sh.setStatus(nd::PanelPart, QStringLiteral("[%1/%2]").arg(i).arg(partCount));
        if (sh.S.StopRequested || (i == 2 && (sh.S.ScanMode || sh.S.QuietMode)))
            break;
        sh.setStatus(nd::PanelDetail, set.last.attachmentName);
        set.last = NNTP_DownloadMessage(numbers.at(i));
        if (set.last.duplicate) {
            set.error = set.last.error;
            break;
        }
        if (!set.last.ok()) {
            set.partCount = -1;
            set.error = set.last.error;
            break;
        }
    }
    return set;
}

// Decodes a fetched set into the download directory; the error (255) when decoding failed.
int Downloader::finishSet(const SetFetch &set)
{
    if (set.last.duplicate || sh.S.ScanMode || sh.S.StopRequested || set.error != 0)
        return set.error;
    if (set.last.attachmentName.isEmpty() || set.partCount == -1) {
        if (set.partCount != -1)
            sh.setStatus(nd::PanelDetail, QString());
        return 0;
    }
    const QString name = nd::savedFileName(set.last.attachmentName);
    if (!name.isEmpty() && !nd::nameTaken(destDir(), name) && !decodeSet(name, set.last.kind))
        return 255;
    return 0;
}

// One row's set: found, fetched, decoded. Returns the error that ends it (0 when none).
int Downloader::downloadRow(int r, bool all, int lastRow)
{
    sh.setProgressRange(sh.progressMinimum(), lastRow + 1);
    sh.setProgress(r);
    if (all && grid.cell(r, MessageGrid::ColMark) == MarkTaken) {
        // taken by the part search of an earlier row: a set of 2,000 parts is searched and
        // fetched once, not 2,000 times
        sh.setStatus(nd::PanelState, QStringLiteral("Previously Downloaded"));
        nd::yieldOnce();
        return 0;
    }
    sh.S.IsYenc = false;
    sh.S.AttachmentName.clear();
    sh.S.IsMimeAttachment = false;
    sh.S.IsUuencoded = false;
    sh.setStatus(nd::PanelPart, QString());
    sh.setStatus(nd::PanelDetail, QString());

    const QString subject = grid.cell(r, MessageGrid::ColSubject);
    if (sh.opt.SaveHTTP != 0 || sh.opt.SaveFTP != 0 || sh.S.ScanMode)
        emit textToScan(subject);
    QVector<qint64> numbers;
    const int partCount = findParts(r, subject, numbers);
    const SetFetch set = fetchParts(partCount, numbers);
    const int error = finishSet(set);
    CleanTempFiles(false);
    nd::yieldOnce();
    return error;
}

int Downloader::DownloadRows(int row)
{
    if (sh.S.DownloadBusy) {
        // one run at a time: a second one would share the first one's temporary file
        sh.setStatus(nd::PanelDetail, BusyText);
        return 0;
    }
    beginSetRun();
    const bool all = row < 0;
    const int first = all ? 1 : row;
    const int last = all ? grid.lastMessageRow() : row;
    int error = 0;
    // (the grid is read afresh every round: a reconnect to another server empties it)
    for (int r = first; r <= last && r <= grid.lastMessageRow() && !sh.S.StopRequested; ++r) {
        error = downloadRow(r, all, last);
        if (error != 0 && all)
            break;
    }
    endSetRun();
    return error;
}

bool Downloader::busyWithOther()
{
    if (!sh.S.DownloadBusy && !session.transactionRunning())
        return false;
    sh.setStatus(nd::PanelDetail, BusyText);
    return true;
}

void Downloader::DownloadSelected()
{
    sh.S.IsYenc = false;
    if (sh.S.QuietMode || busyWithOther())
        return;
    QList<int> rows;
    for (const QModelIndex &i : gridSelection.selectedRows())
        rows.append(i.row() + 1);
    if (rows.isEmpty())
        return;
    std::sort(rows.begin(), rows.end());

    sh.setBusy(true);
    sh.setStatus(nd::PanelState, QStringLiteral("Looking for attachments"));
    switchCommands(false);
    sh.S.StopRequested = false;
    sh.S.TransportError = 0;
    int error = 0;
    for (int r : rows) {
        if (sh.S.StopRequested || error != 0)
            break;
        if (r > grid.lastMessageRow())
            continue;
        const QString mark = grid.cell(r, MessageGrid::ColMark);
        if (mark.isEmpty())
            error = DownloadRows(r);
        else if (mark.trimmed().toInt() == MessageGrid::MarkDownloaded.toInt())
            sh.setStatus(nd::PanelState, QStringLiteral("Previously Downloaded"));
    }
    if (error == 0 && !sh.S.StopRequested) {
        if (sh.status(nd::PanelState) != QLatin1String("Previously Downloaded"))
            sh.setStatus(nd::PanelState, QStringLiteral("Finished Downloading"));
        const QString detail = sh.status(nd::PanelDetail);
        if (detail != QLatin1String("Incomplete") && detail != QLatin1String("Duplicate File"))
            sh.setStatus(nd::PanelDetail, QString());
    }
    sh.setStatus(nd::PanelPart, QStringLiteral("Connected"));
    switchCommands(true);
    sh.setBusy(false);
}

int Downloader::DownloadAll()
{
    if (sh.S.QuietMode)
        return 0;
    if (grid.lastMessageRow() < 1 || !sh.viewEnabled(nd::View::Messages))
        return 0;
    if (busyWithOther())
        return 0;
    switchCommands(false);
    setFavoritesEnabled(false);
    sh.S.TransportError = 0;
    const int error = DownloadRows(-1);
    if (error == 0 && !sh.S.StopRequested)
        sh.setStatus(nd::PanelState, QStringLiteral("Finished Downloading"));
    sh.setStatus(nd::PanelPart, QStringLiteral("Connected"));
    switchCommands(true);
    setFavoritesEnabled(true);
    return error;
}
