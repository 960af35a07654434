#include "download/Downloader.h"

#include "app/Paths.h"
#include "app/Wait.h"
#include "app/frmMain.h"
#include "download/FileNames.h"
#include "download/PartFinder.h"
#include "download/SavedFiles.h"
#include "harvest/AddressRules.h"
#include "harvest/Harvester.h"
#include "messages/MessageGrid.h"
#include "news/Session.h"
#include "news/transport/NewsTransport.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include "download/decoder/DecoderWizard.h"

#include <QAction>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QListView>
#include <QProgressBar>
#include <QRandomGenerator>
#include <QTableView>

namespace {

const QString ConnectedText = QStringLiteral("Connected to NNTP Server");
const QString GoneText = QStringLiteral("Message no longer available on server.");
const QString MarkTaken = QStringLiteral("256");

} // namespace

// The grid's message rows as the part search sees them; the subjects are read once per run.
class Downloader::GridRows : public nd::PartRows {
public:
    explicit GridRows(MessageGrid *g) : m_grid(g)
    {
        m_last = g->lastMessageRow();
        m_subjects.reserve(m_last);
        for (int r = 1; r <= m_last; ++r)
            m_subjects.append(g->cell(r, 2));
    }
    int lastRow() const override { return m_last; }
    QString subject(int row) const override { return m_subjects.at(row - 1); }
    qint64 articleNumber(int row) const override { return m_grid->cell(row, 0).trimmed().toLongLong(); }
    void mark(int row) override { m_grid->setCell(row, 8, MarkTaken); }
    bool stillValid() const { return m_grid->lastMessageRow() == m_last; }

private:
    MessageGrid *m_grid;
    int m_last = 0;
    QStringList m_subjects;
};

Downloader::Downloader(frmMain &main)
    : QObject(&main), m(main)
{
    m_decoder = new DecoderWizard(this);
    connect(m_decoder, &DecoderWizard::Completed, this, [this] { m.S.TransactionDone = true; });

    m.wireCommand(QStringLiteral("menuDownload"), [this] {
        m.S.StopRequested = false;
        DownloadSelected();
    });
    m.wireCommand(QStringLiteral("menuDownloadAll"), [this] {
        m.S.StopRequested = false;
        DownloadAll();
    });
}

Downloader::~Downloader()
{
    delete m_rows;
}

QString Downloader::destDir() const
{
    return nd::withTrailingSlash(m.opt.DestDir);
}

void Downloader::setFavoritesEnabled(bool on)
{
    if (m.lstFavoritesView)
        m.lstFavoritesView->setEnabled(on);
}

void Downloader::gridRedraw(bool on)
{
    if (m.MSHResults)
        m.MSHResults->setUpdatesEnabled(on);
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
            m.S.IsMimeAttachment = false;
        } else {
            text += msg.ContentDisposition.toUtf8() + crlf + crlf + msg.Body + crlf;
            if (!m.S.QuietMode)
                m.S.IsMimeAttachment = true;
        }
        return;
    }
    for (const NewsTransportPart &p : msg.Parts) {
        if (p.ContentDisposition.isEmpty() || p.ContentType == QLatin1String("text")) {
            textPart = p.Body + crlf;
        } else {
            text += p.ContentDisposition.toUtf8() + crlf + crlf + p.Body + crlf;
            if (!m.S.QuietMode)
                m.S.IsMimeAttachment = true;
        }
    }
}

void Downloader::NNTP_DownloadMessage(qint64 n)
{
    setFavoritesEnabled(false);
    m.S.TransportError = 0;
    if (m.S.StopRequested) {
        setFavoritesEnabled(true);
        return;
    }
    const QString reading = QStringLiteral("Reading Message #") + QString::number(n);
    m.setStatus(1, reading);

    NewsSession *session = m.session;
    if (!session) {
        m.S.TransportError = -1;
        setFavoritesEnabled(true);
        return;
    }
    if (!session->transport() || session->transport()->StateText() != ConnectedText) {
        session->NNTP_Connect(false);
        if (m.S.TransportError == 0
            && (!session->transport() || session->transport()->StateText() != ConnectedText))
            m.S.TransportError = -1;
        if (m.S.TransportError != 0) {
            setFavoritesEnabled(true);
            return;
        }
    }

    m.SetMenuState(4, true);
    m.S.MessageText.clear();
    MessageBytes.clear();
    DuplicateFound = false;
    m.S.SecondsTick = 0;
    m.S.TransactionDone = false;
    m.setStatus(1, reading);

    // An article number means something only in its own group: a listing read from the cache
    // has selected nothing on the server.
    bool ok = true;
    if (!m.S.CurrentGroup.isEmpty() && session->transport()->SelectedGroup().Name != m.S.CurrentGroup) {
        const QString group = m.S.CurrentGroup;
        ok = session->runTransaction([group](NewsTransport *t) { t->SelectGroup(group); }).ok();
    }
    if (ok && !m.S.StopRequested)
        ok = session->runTransaction([n](NewsTransport *t) { t->FetchArticles(n, n); }).ok();
    NewsTransport *t = session->transport();
    if (!ok && m.S.TransportError == 0 && t && t->LastError() != 0)
        m.S.TransportError = t->LastError();

    if (m.S.TransportError != 0) {
        m.setStatus(1, QStringLiteral("Error retrieving message."));
    } else if (!t || t->SelectedGroup().Count() == 0) {
        if (m.S.StopRequested) {
            // stopped before anything arrived: nothing to process
        } else {
            m.setStatus(1, GoneText);
            m.S.MessageText = GoneText;
            m.S.TransportError = -1;
        }
    } else {
        const NewsTransportMessage &msg = t->SelectedGroup().Item(0).Message;
        QByteArray text, textPart;
        buildMessage(msg, text, textPart);
        MessageBytes = text;

        // attachment handling
        if (!m.S.QuietMode && m.S.AttachmentName.isEmpty())
            GetFilename();
        if (m.S.IsMimeAttachment) {
            const qsizetype blank = MessageBytes.indexOf("\r\n\r\n");
            MessageBytes = blank >= 0 ? MessageBytes.mid(blank + 4) : QByteArray();
            if (MessageBytes.startsWith("begin ")) {
                m.S.IsMimeAttachment = false;
                m.S.IsUuencoded = true;
            }
        }
        // (The transport has already undone the protocol's dot doubling at line starts.)
        // (Without a temporary file no set is being joined: a message is only being shown.)
        if (!m.S.AttachmentName.isEmpty() && !m.S.ScanMode && m.S.TransportError == 0 && !m.S.TempFileName.isEmpty()) {
            if (!AppendToTempFile(MessageBytes)) {
                m.setStatus(1, QStringLiteral("Unable to write ") + destDir() + m.S.TempFileName);
                m.S.TransportError = 255;
            }
        }

        // the text to show
        auto before = [](const QByteArray &b, const char *marker) -> std::optional<QByteArray> {
            const qsizetype i = b.indexOf(marker);
            if (i < 0)
                return std::nullopt;
            return b.left(i).trimmed() + "{binary attachment}";
        };
        std::optional<QByteArray> shown;
        if (m.S.IsYenc)
            shown = before(MessageBytes, "=ybegin ");
        else if (m.S.IsUuencoded)
            shown = before(MessageBytes, "begin ");
        if (shown)
            m.S.MessageText = textFromBytes(*shown);
        else if (!m.S.IsYenc && !m.S.IsUuencoded && m.S.IsMimeAttachment)
            m.S.MessageText = textFromBytes(textPart);
        else
            m.S.MessageText = textFromBytes(MessageBytes);
        if (m.harvester
            && (m.S.ScanMode || harvest::worthScanning(m.S.MessageText, m.opt.SaveHTTP != 0, m.opt.SaveFTP != 0)))
            m.harvester->FindWebAddresses(m.S.MessageText);
    }

    m.SetMenuState(4, false);
    setFavoritesEnabled(true);
}

void Downloader::GetFilename()
{
    // The rules work on text; bytes that are not UTF-8 are read as Latin-1, which keeps every
    // byte, so a UTF-8 name inside a binary article is recovered afterwards.
    const bool utf8 = QString::fromUtf8(MessageBytes).toUtf8() == MessageBytes;
    const QString text = utf8 ? QString::fromUtf8(MessageBytes) : QString::fromLatin1(MessageBytes);
    nd::AttachmentNameResult r = nd::findAttachmentName(text, m.S.IsMimeAttachment, [this] { return m.S.StopRequested; });
    if (!utf8 && !r.name.isEmpty())
        r.name = nd::plainFileName(textFromBytes(r.name.toLatin1()));
    if (r.yenc)
        m.S.IsYenc = true;
    if (r.uuencoded)
        m.S.IsUuencoded = true;
    if (!r.name.isEmpty()) {
        m.setStatus(2, r.name);
        if (QFileInfo::exists(destDir() + r.name)) {
            m.setStatus(2, QStringLiteral("Duplicate File"));
            DuplicateFound = true;
        }
    }
    m.S.AttachmentName = r.name;
}

// ------------------------------------------------------------------ temporary files

bool Downloader::AppendToTempFile(const QByteArray &bytes)
{
    if (m.S.TempFileName.isEmpty())
        return false;
    QFile f(destDir() + m.S.TempFileName);
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
    const QString name = m.S.TempFileName;
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
    for (int code : {7, 8, 9, 3, 5})
        m.SetMenuState(code, on);
    m.MenuOnOff(QStringLiteral("CG"), on);
    m.MenuOnOff(QStringLiteral("SM"), on);
}

void Downloader::holdLists(bool hold)
{
    if (hold) {
        if (m_holdDepth++ > 0)
            return;
        m_heldStates.clear();
        for (nd::Cmd c : nd::cmds::ListRebuild) {
            m_heldStates.append(m.shell().menuState(c));
            m.shell().SetMenuState(c, false);
        }
        m_groupsViewWasOn = m.lstGroupsView && m.lstGroupsView->isEnabled();
        if (m.lstGroupsView)
            m.lstGroupsView->setEnabled(false);
        return;
    }
    if (m_holdDepth == 0 || --m_holdDepth > 0)
        return;
    // a run that lost its connection leaves them off, as the disconnect did
    const bool connected = m.IsConnectedIdle(false);
    int i = 0;
    for (nd::Cmd c : nd::cmds::ListRebuild)
        m.shell().SetMenuState(c, connected && m_heldStates.value(i++));
    if (m.lstGroupsView && m_groupsViewWasOn)
        m.lstGroupsView->setEnabled(true);
}

bool Downloader::decodeSet(const QString &name)
{
    m.setStatus(1, QStringLiteral("Decoding File "));
    nd::yieldOnce();
    m.S.TransportError = 0;
    const QString input = destDir() + m.S.TempFileName;
    const QString output = destDir() + name;
    int format = -1;
    if (m.S.IsYenc)
        format = 3;
    else if (m.S.IsUuencoded)
        format = 2;
    else if (m.S.IsMimeAttachment)
        format = 0;
    if (format >= 0) {
        m.S.TransactionDone = false;
        // Never over an existing file, whatever happened since the name was checked.
        m_decoder->DecodeToFile(input, output, format, false);
        nd::waitUntil([this] { return m.S.TransactionDone; });
        m.S.TransportError = m_decoder->DecodeError();
    } else {
        m.S.TransportError = 255;
    }
    if (m.S.TransportError == 0)
        m.setStatus(2, QString());
    if (m.S.TransportError == 0 && QFileInfo::exists(output)) {
        addSavedFile(output);
        return true;
    }
    m.setStatus(1, QStringLiteral("Error Decoding"));
    if (format >= 0 && !m_decoder->DecodeErrorText().isEmpty())
        m.setStatus(2, m_decoder->DecodeErrorText());
    m.S.TransportError = 255;
    return false;
}

void Downloader::addSavedFile(const QString &path)
{
    // the saved-files list lists the file with its type icon and previews incoming pictures
    // when it hears of it (fileSaved); without one the bare name is listed here
    if (!m.savedFiles) {
        const QString name = QFileInfo(path).fileName();
        if (m.lstFiles && m.lstFiles->find(name) < 0)
            m.lstFiles->add(name);
        m.UpdateCaption(QStringLiteral("3"));
    }
    emit fileSaved(path);
}

// While rows download: Stop on; Setup, Groups, Download, Download All and View off
// (left alone during a multi-server run, which holds the menus itself).
void Downloader::runningCommands(bool running)
{
    if (m.S.QuietMode)
        return;
    holdLists(running);
    for (int code : {1, 3, 7, 8, 9})
        m.SetMenuState(code, !running);
    m.SetMenuState(4, running);
}

void Downloader::DownloadRows(int row)
{
    if (m.S.DownloadBusy) {
        // one run at a time: a second one would share the first one's temporary file
        m.setStatus(2, QStringLiteral("Please wait until current transaction is finished"));
        return;
    }
    m.S.DownloadBusy = true;
    m.S.IsMimeAttachment = false;
    m.S.IsUuencoded = false;
    runningCommands(true);
    setFavoritesEnabled(false);

    MessageGrid *grid = m.grid;
    const bool all = row < 0;
    const int lastRow = grid->lastMessageRow();
    const int first = all ? 1 : row;
    const int last = all ? lastRow : row;
    m.progBar->setValue(m.progBar->minimum());
    m.setStatus(2, QString());

    QDir().mkpath(destDir());
    QRandomGenerator rng(quint32(QDateTime::currentMSecsSinceEpoch()));
    CleanTempFiles(false);
    m.S.TempFileName = nd::nextTempFileName([&rng] { return rng.generateDouble(); }, [this](const QString &n) {
        return QFileInfo::exists(destDir() + n) || QFileInfo::exists(nd::appFile(n));
    });
    m.setBusy(true);
    delete m_rows;
    m_rows = nullptr;

    // (the grid is read afresh every round: a reconnect to another server empties it)
    for (int r = first; r <= last && r <= grid->lastMessageRow() && !m.S.StopRequested; ++r) {
        m.progBar->setMaximum(last + 1);
        m.progBar->setValue(r);
        if (all && grid->cell(r, 8) == MarkTaken) {
            // taken by the part search of an earlier row: a set of 2,000 parts is searched and
            // fetched once, not 2,000 times
            m.setStatus(1, QStringLiteral("Previously Downloaded"));
            nd::yieldOnce();
            continue;
        }
        m.S.IsYenc = false;
        m.S.AttachmentName.clear();
        m.S.IsMimeAttachment = false;
        m.S.IsUuencoded = false;
        m.setStatus(3, QString());
        m.setStatus(2, QString());

        const QString subject = grid->cell(r, 2);
        if (m.harvester && (m.opt.SaveHTTP != 0 || m.opt.SaveFTP != 0 || m.S.ScanMode))
            m.harvester->FindWebAddresses(subject);
        const qint64 n = grid->cell(r, 0).trimmed().toLongLong();
        PartCount = 0;
        if (!m_rows || !m_rows->stillValid()) {
            delete m_rows;
            m_rows = new GridRows(grid);
        }
        const nd::PartSearch found = nd::FindAllParts(subject, *m_rows, [this] { return m.S.StopRequested; }, [this] {
            m.setStatus(1, QStringLiteral("Searching for all parts of message"));
            gridRedraw(false);
        });
        gridRedraw(true);
        if (found.outcome == nd::PartSearch::Complete) {
            PartCount = qint32(found.total);
            PartNumbers = found.numbers;
        } else if (found.outcome == nd::PartSearch::Incomplete) {
            m.setStatus(2, QStringLiteral("Incomplete"));
            PartCount = -1;
        } else if (!m.S.StopRequested) {
            PartCount = 1;
            PartNumbers = {0, n};
        }

        bool duplicate = false;
        for (int i = 1; i <= PartCount; ++i) {
            m.setStatus(3, QStringLiteral("[%1/%2]").arg(i).arg(PartCount));
            if (m.S.StopRequested || (i == 2 && (m.S.ScanMode || m.S.QuietMode)))
                break;
            m.setStatus(2, m.S.AttachmentName);
            NNTP_DownloadMessage(PartNumbers.at(i));
            if (DuplicateFound) {
                duplicate = true;
                break;
            }
            if (m.S.TransportError != 0) {
                PartCount = -1;
                break;
            }
        }

        if (!duplicate) {
            if (m.S.ScanMode || m.S.StopRequested || m.S.TransportError != 0) {
                // the set is not decoded
            } else if (m.S.AttachmentName.isEmpty() || PartCount == -1) {
                if (PartCount != -1)
                    m.setStatus(2, QString());
            } else {
                const QString name = nd::savedFileName(m.S.AttachmentName);
                if (!name.isEmpty() && !QFileInfo::exists(destDir() + name))
                    decodeSet(name);
            }
        }
        CleanTempFiles(false);
        nd::yieldOnce();
        if (m.S.TransportError != 0 && all)
            break;
    }
    CleanTempFiles(false);
    m.S.TempFileName.clear();   // no set is being joined any more

    m.setBusy(false);
    runningCommands(false);
    m.progBar->setValue(m.progBar->minimum());
    setFavoritesEnabled(true);
    m.S.DownloadBusy = false;
    m.setStatus(3, QString());
}

void Downloader::DownloadSelected()
{
    m.S.IsYenc = false;
    if (m.S.QuietMode)
        return;
    if (m.S.DownloadBusy || (m.session && m.session->transactionRunning())) {
        m.setStatus(2, QStringLiteral("Please wait until current transaction is finished"));
        return;
    }
    QList<int> rows;
    if (QItemSelectionModel *sel = m.MSHResults->selectionModel())
        for (const QModelIndex &i : sel->selectedRows())
            rows.append(i.row() + 1);
    if (rows.isEmpty())
        return;
    std::sort(rows.begin(), rows.end());

    m.setBusy(true);
    m.setStatus(1, QStringLiteral("Looking for attachments"));
    switchCommands(false);
    m.S.StopRequested = false;
    m.S.TransportError = 0;
    for (int r : rows) {
        if (m.S.StopRequested || m.S.TransportError != 0)
            break;
        if (r > m.grid->lastMessageRow())
            continue;
        const QString mark = m.grid->cell(r, 8);
        if (mark.isEmpty())
            DownloadRows(r);
        else if (mark.trimmed().toInt() == 256)
            m.setStatus(1, QStringLiteral("Previously Downloaded"));
    }
    if (m.S.TransportError == 0 && !m.S.StopRequested) {
        if (m.status(1) != QLatin1String("Previously Downloaded"))
            m.setStatus(1, QStringLiteral("Finished Downloading"));
        if (m.status(2) != QLatin1String("Incomplete") && m.status(2) != QLatin1String("Duplicate File"))
            m.setStatus(2, QString());
    }
    m.setStatus(3, QStringLiteral("Connected"));
    switchCommands(true);
    m.setBusy(false);
}

void Downloader::DownloadAll()
{
    if (m.S.QuietMode)
        return;
    if (m.grid->lastMessageRow() < 1 || !m.MSHResults->isEnabled())
        return;
    if (m.S.DownloadBusy || (m.session && m.session->transactionRunning())) {
        m.setStatus(2, QStringLiteral("Please wait until current transaction is finished"));
        return;
    }
    switchCommands(false);
    setFavoritesEnabled(false);
    m.S.TransportError = 0;
    DownloadRows(-1);
    if (m.S.TransportError == 0 && !m.S.StopRequested)
        m.setStatus(1, QStringLiteral("Finished Downloading"));
    m.setStatus(3, QStringLiteral("Connected"));
    switchCommands(true);
    setFavoritesEnabled(true);
}
