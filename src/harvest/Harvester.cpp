#include "harvest/Harvester.h"

#include "app/Paths.h"
#include "app/Wait.h"
#include "app/frmMain.h"
#include "download/Downloader.h"
#include "groups/FavoriteRules.h"
#include "groups/GroupList.h"
#include "groups/StopLatch.h"
#include "harvest/AddressRules.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "servers/ServerList.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QFileInfo>
#include <QGroupBox>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QListView>
#include <QProgressBar>
#include <QScopeGuard>
#include <QTableView>

namespace {

const QString ConnectedText = QStringLiteral("Connected to NNTP Server");

// The cached text of the links page, valid while the file keeps the size it had when read.
struct LinkPage {
    QString path;
    QByteArray bytes;
    qint64 size = -1;
};
LinkPage &linkPage()
{
    static LinkPage p;
    return p;
}

} // namespace

Harvester::Harvester(frmMain &main) : QObject(&main), m(main)
{
    struct Command {
        const char *menu;
        HarvestScope scope;
        HarvestKind kind;
    };
    static const Command commands[] = {
        {"menuWebC", CurrentGroup, WebFtp},       {"menuWebG", SelectedGroups, WebFtp},
        {"menuWebF", SelectedFavorites, WebFtp},  {"menuWebM", SelectedMessages, WebFtp},
        {"menuServC", CurrentGroup, NewsServers}, {"menuServG", SelectedGroups, NewsServers},
        {"menuServF", SelectedFavorites, NewsServers}, {"menuServS", SelectedServers, NewsServers},
        {"menuEmailC", CurrentGroup, Email},      {"menuEmailG", SelectedGroups, Email},
        {"menuEmailF", SelectedFavorites, Email}, {"menuEmailS", SelectedServers, Email},
    };
    for (const Command &c : commands)
        m.wireCommand(QString::fromLatin1(c.menu), [this, scope = c.scope, kind = c.kind] { command(scope, kind); });
    // the window starts disconnected: the commands that need a listing wait for one (menuWebC,
    // menuEmailC, menuServC, menuWebG, menuEmailG, menuServG, menuWebM)
    for (int code : {39, 35, 43, 40, 36, 44, 42})
        m.SetMenuState(code, false);

    connect(m.lstHTTPView, &QAbstractItemView::doubleClicked, this, [this] { OpenSelectedAddress(); });
    m.lstHTTPView->installEventFilter(this);
}

QString Harvester::runCaption(HarvestKind kind)
{
    switch (kind) {
    case WebFtp:
        return QStringLiteral("Web/FTP Addresses");
    case Email:
        return QStringLiteral("Email Addresses");
    case NewsServers:
        return QStringLiteral("News Servers");
    }
    return QString();
}

QString Harvester::scopeCode(HarvestScope scope)
{
    switch (scope) {
    case CurrentGroup:
        return QStringLiteral("CG");
    case SelectedGroups:
        return QStringLiteral("SG");
    case SelectedFavorites:
        return QStringLiteral("FA");
    case SelectedMessages:
        return QStringLiteral("SM");
    case SelectedServers:
        return QStringLiteral("SS");
    }
    return QString();
}

QString Harvester::linkFile()
{
    return nd::appFile(QStringLiteral("UsenetHTTP.htm"));
}

bool Harvester::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m.lstHTTPView && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            OpenSelectedAddress();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

void Harvester::OpenSelectedAddress()
{
    if (!m.frameHTTP->title().startsWith(QLatin1String("Web")))
        return;
    ItemList *l = m.lstHTTP;
    if (l->selectedCount() < 1) {
        m.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Exclamation, Prompter::Ok,
                             QStringLiteral("Newsdredge!"));
        return;
    }
    int i = l->currentIndex();
    if (i < 0 || !l->isSelected(i))
        i = l->selectedIndexes().first();
    m.OpenDocument(l->text(i));
}

// ------------------------------------------------------------------ questions

bool Harvester::AskOutputFile()
{
    QString name;
    try {
        const QString dir = m.S.OutputFileName.isEmpty() ? nd::appDir() : QFileInfo(m.S.OutputFileName).absolutePath();
        name = m.prompter().saveFileName(QStringLiteral("Output File"), dir, QStringLiteral("Text (*.txt)|*.txt"));
    } catch (...) {
        return false;
    }
    if (name.isEmpty())
        return false;
    m.S.OutputFileName = name;
    return true;
}

bool Harvester::AskEmailSearch()
{
    m.prompter().message(QStringLiteral("Please Specify Output File"), Prompter::Information, Prompter::Ok,
                         QStringLiteral("Newsdredge!"));
    if (!AskOutputFile())
        return false;
    const std::optional<QString> answer
        = m.prompter().input(QStringLiteral("Enter search string for email address (Press ENTER for ALL addresses)"),
                             QStringLiteral("Enter Search String"), QString());
    EmailSearchText = answer.value_or(QString());
    return true;
}

// ------------------------------------------------------------------ output file

bool Harvester::openOutputFile()
{
    closeOutputFile();
    m_outputFailed = false;
    if (m.S.OutputFileName.isEmpty())
        return false;
    m_output.setFileName(m.S.OutputFileName);
    if (!m_output.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        m_outputFailed = true;
        m.prompter().message(QStringLiteral("Unable to write ") + m.S.OutputFileName
                                 + QStringLiteral("\nThe addresses found are only listed."),
                             Prompter::Critical, Prompter::Ok, QStringLiteral("Newsdredge!"));
        return false;
    }
    return true;
}

void Harvester::writeOutputLine(const QString &address)
{
    if (!m_output.isOpen() || m_outputFailed)
        return;
    const QByteArray line = address.toUtf8() + '\n';
    if (m_output.write(line) != line.size() || !m_output.flush()) {
        m_outputFailed = true;
        m.setStatus(2, QStringLiteral("Unable to write ") + m_output.fileName());
    }
}

void Harvester::closeOutputFile()
{
    if (m_output.isOpen())
        m_output.close();
}

// ------------------------------------------------------------------ the three rules

void Harvester::FindWebAddresses(const QString &text)
{
    const auto fail = [this] {
        m.setStatus(2, QStringLiteral("Error Saving/Accessing Web Address File!"));
        return false;
    };
    try {
        harvest::WebSwitches sw;
        sw.webSave = m.opt.WEBSave;
        sw.ftpSave = m.opt.FTPSave;
        sw.saveHttp = m.opt.SaveHTTP != 0;
        sw.saveFtp = m.opt.SaveFTP != 0;
        harvest::findWebAddresses(
            text, sw, [this](const QString &a) { return m.lstHTTP->find(a) >= 0; },
            [this, &fail](const QString &a) {
                m.lstHTTP->add(a);
                m.UpdateCaption(QStringLiteral("4"));
                const QString path = linkFile();
                LinkPage &page = linkPage();
                QFile f(path);
                const QFileInfo info(path);
                if (info.exists()) {
                    if (!info.isFile())
                        return fail();
                    if (page.path != path || page.size != info.size()) {
                        if (!f.open(QIODevice::ReadOnly))
                            return fail();
                        page.bytes = f.readAll();
                        f.close();
                        if (f.error() != QFileDevice::NoError)
                            return fail();
                        page.path = path;
                        page.size = page.bytes.size();
                    }
                    if (harvest::pageHoldsAddress(page.bytes, a))
                        return true;
                } else {
                    page = LinkPage{path, QByteArray(), 0};
                }
                const QByteArray line = harvest::linkLine(a);
                if (!f.open(QIODevice::WriteOnly | QIODevice::Append))
                    return fail();
                const bool written = f.write(line) == line.size();
                f.close();
                if (!written || f.error() != QFileDevice::NoError) {
                    page.size = -1;
                    return fail();
                }
                page.bytes += line;
                page.size = QFileInfo(path).size();
                return true;
            });
    } catch (...) {
        fail();
    }
}

void Harvester::CleanEmailAddress(const QString &text)
{
    const QString address = harvest::cleanEmailAddress(text);
    if (!harvest::emailWanted(address, EmailSearchText) || m.lstHTTP->find(address) >= 0)
        return;
    m.lstHTTP->add(address);
    m.setStatus(1, address);
    writeOutputLine(address);
}

void Harvester::FindNewsServers(const QString &path)
{
    ServerList *servers = m.servers;
    if (!servers)
        return;
    servers->ensureLoaded();
    bool added = false;
    for (const QString &name : harvest::newsServersInPath(path)) {
        if (m.lstHTTP->find(name) >= 0 || servers->findServer(name) >= 0)
            continue;
        servers->lstServs->add(harvest::uncheckedServerItem(name));
        m.lstHTTP->add(name);
        m.setStatus(1, name);
        writeOutputLine(name);
        added = true;
    }
    if (!added)
        return;
    m_serversAdded = true;
    if (!m_running) {
        // a run saves the server list once at its end
        servers->save();
        servers->refreshCaption();
    }
}

// ------------------------------------------------------------------ runs

bool Harvester::stopped() const
{
    return m.S.StopRequested || (m_latch && m_latch->stopped());
}

void Harvester::holdLists(bool hold)
{
    m.lstFavoritesView->setEnabled(!hold);
    m.MSHResults->setEnabled(!hold);
    m.lstGroupsView->setEnabled(!hold);
    // a new group list, a listing or a reconnect in the middle would end the run early
    if (hold) {
        if (!m_commandsHeld) {
            m_heldStates.clear();
            for (nd::Cmd c : nd::cmds::HarvestBreakers)
                m_heldStates.append(m.shell().menuState(c));
            m_commandsHeld = true;
        }
        for (nd::Cmd c : nd::cmds::HarvestBreakers)
            m.shell().SetMenuState(c, false);
    } else if (m_commandsHeld) {
        m_commandsHeld = false;
        // what a closing disconnect switched off stays off
        const bool connected = m.IsConnectedIdle(false);
        int i = 0;
        for (nd::Cmd c : nd::cmds::HarvestBreakers) {
            const bool was = m_heldStates.value(i++);
            m.shell().SetMenuState(c, c == nd::Cmd::Connect ? was : was && connected);
        }
    }
}

void Harvester::command(HarvestScope scope, HarvestKind kind)
{
    // one batch run at a time (server checking borrows the same lists under QuietMode)
    if (m_running || m.S.QuietMode)
        return;
    if (m.S.DownloadBusy || (m.session && m.session->transactionRunning())
        || (m.messages && m.messages->listingInProgress())) {
        m.setStatus(2, QStringLiteral("Please wait until current transaction is finished"));
        return;
    }
    if (kind == NewsServers && !AskOutputFile())
        return;
    DoAdvanced(scope, kind);
}

void Harvester::listCurrentGroup(HarvestScope scope)
{
    m.S.QuietMode = false;
    if (m.messages)
        m.messages->ListMessages(true);
    m.S.QuietMode = true;
    // the listing hands its commands and lists back; the run still holds them
    m.MenuOnOff(scopeCode(scope), false);
    holdLists(true);
}

void Harvester::DoAdvanced(HarvestScope scope, HarvestKind kind)
{
    if (m_running)
        return;
    m_running = true;
    m_serversAdded = false;
    StopLatch latch(m.shell());
    m_latch = &latch;
    const QString code = scopeCode(scope);
    const QString caption = runCaption(kind);

    try {
        m.S.TransportError = 0;
        m.S.StopRequested = false;
        m.SetMenuState(4, true);
        holdLists(true);
        m.lstHTTP->clear();
        m.UpdateCaption(QStringLiteral("4"));
        m.MenuOnOff(code, false);

        bool go = true;
        switch (kind) {
        case WebFtp:
            m.S.ScanMode = true;
            m.UpdateCaption(QStringLiteral("4"));
            break;
        case Email:
            m.UpdateCaption(QStringLiteral("9"));
            m.S.QuietMode = true;
            go = AskEmailSearch();
            break;
        case NewsServers:
            m.S.QuietMode = true;
            m.UpdateCaption(QStringLiteral("10"));
            break;
        }
        if (go)
            runItems(scope, kind, caption);
    } catch (...) {
        // the closing steps below still run
    }

    try {
        closeOutputFile();
        m.MenuOnOff(code, true);
        if (scope == SelectedGroups) {
            m.S.QuietMode = false;
            NewsSession *s = m.session;
            if (m.groups && s && s->transport() && s->transport()->StateText() == ConnectedText)
                m.groups->LoadGroupList(true);
        } else if (scope == SelectedFavorites || scope == SelectedServers) {
            m.S.QuietMode = false;
            if (m.session)
                m.session->NNTP_Disconnect();
        }
        if (m_serversAdded && m.servers) {
            m.servers->save();
            m.servers->refreshCaption();
        }
    } catch (...) {
    }
    m.S.ScanMode = false;
    holdLists(false);
    m.setStatus(2, QString());
    m.SetMenuState(4, false);
    m.S.QuietMode = false;
    m.progBar->setRange(0, 100);
    m.progBar->setValue(0);
    m_latch = nullptr;
    m_running = false;
}

void Harvester::runItems(HarvestScope scope, HarvestKind kind, const QString &caption)
{
    // the items to visit, taken before the run changes any list
    QStringList items;
    if (scope == SelectedGroups || scope == SelectedFavorites || scope == SelectedServers) {
        ItemList *list = nullptr;
        if (scope == SelectedGroups)
            list = m.lstGroups;
        else if (scope == SelectedFavorites)
            list = m.lstFavorites;
        else if (m.servers) {
            m.servers->ensureLoaded();
            list = m.servers->lstServs;
        }
        if (list)
            for (int i : list->selectedIndexes())
                items << list->text(i);
        if (items.isEmpty()) {
            m.prompter().message(QStringLiteral("Must select items first."), Prompter::Information, Prompter::Ok,
                                 QStringLiteral("Newsdredge"));
            return;
        }
    }

    m.setStatus(2, QStringLiteral("Finding ") + caption);
    if (kind != WebFtp)
        openOutputFile();

    switch (scope) {
    case CurrentGroup:
        ScanMessageRows(true, scope, kind);
        break;
    case SelectedMessages:
        ScanMessageRows(false, scope, kind);
        break;
    case SelectedGroups:
        for (const QString &item : std::as_const(items)) {
            const qsizetype paren = item.indexOf(QLatin1Char('('));
            m.S.CurrentGroup = GroupList::CleanNewsGroup(paren >= 0 ? item.left(paren) : item).trimmed();
            listCurrentGroup(scope);
            if (!stopped())
                ScanMessageRows(true, scope, kind);
            if (stopped())
                break;
        }
        break;
    case SelectedFavorites:
        for (const QString &item : std::as_const(items)) {
            const qsizetype space = item.indexOf(QLatin1Char(' '));
            const QString group = GroupList::CleanNewsGroup(space >= 0 ? item.left(space) : item).trimmed();
            const QString server = FavoriteRules::GetServerName(item);
            if (group.isEmpty() || server.isEmpty())
                continue;
            m.opt.NNTPServer = server;
            m.UpdateCaption(QStringLiteral("5"));
            NewsSession *s = m.session;
            if (!s)
                break;
            if (s->transport() && s->transport()->Host() != server)
                s->NNTP_Disconnect();
            if (stopped())
                break;
            s->NNTP_Connect(false);
            if (stopped())
                break;
            m.S.CurrentGroup = group;
            listCurrentGroup(scope);
            if (!stopped())
                ScanMessageRows(true, scope, kind);
            if (stopped())
                break;
        }
        break;
    case SelectedServers:
        for (const QString &item : std::as_const(items)) {
            const qsizetype gap = item.indexOf(QLatin1String("   "));
            const QString server = (gap >= 0 ? item.mid(gap + 3) : item).trimmed();
            if (server.isEmpty())
                continue;
            m.opt.NNTPServer = server;
            m.UpdateCaption(QStringLiteral("5"));
            NewsSession *s = m.session;
            if (!s)
                break;
            // every server is scanned with its own groups
            m.lstGroups->clear();
            s->NNTP_Disconnect();
            if (stopped())
                break;
            s->NNTP_Connect(true);
            holdLists(true);
            const QStringList groups = m.lstGroups->texts();
            for (const QString &g : groups) {
                if (stopped())
                    break;
                m.UpdateCaption(kind == Email ? QStringLiteral("9") : kind == NewsServers ? QStringLiteral("10")
                                                                                          : QStringLiteral("4"));
                m.UpdateCaption(QStringLiteral("2"));
                const qsizetype paren = g.indexOf(QLatin1Char('('));
                m.S.CurrentGroup = GroupList::CleanNewsGroup(paren >= 0 ? g.left(paren) : g).trimmed();
                listCurrentGroup(scope);
                if (!stopped())
                    ScanMessageRows(true, scope, kind);
                if (stopped() || m.S.TransportError != 0)
                    break;
            }
            if (stopped())
                break;
        }
        break;
    }

    m.setStatus(1, QStringLiteral("Finished finding ") + caption);
    m.prompter().message(QString::number(m.lstHTTP->count()) + QLatin1Char(' ') + caption
                             + QStringLiteral(" found and saved."),
                         Prompter::Information, Prompter::Ok, QStringLiteral("Newsdredge"));
    m.UpdateCaption(QStringLiteral("4"));
}

void Harvester::ScanMessageRows(bool allRows, HarvestScope scope, HarvestKind kind)
{
    Q_UNUSED(scope);
    MessageGrid *grid = m.grid;
    const int lastRow = grid->lastMessageRow();
    int first = 1;
    int last = lastRow;
    if (!allRows) {
        int lo = -1, hi = -1;
        if (QItemSelectionModel *sel = m.MSHResults->selectionModel()) {
            for (const QModelIndex &i : sel->selectedRows()) {
                lo = lo < 0 ? i.row() : qMin(lo, i.row());
                hi = qMax(hi, i.row());
            }
            if (lo < 0 && sel->currentIndex().isValid())
                lo = hi = sel->currentIndex().row();
        }
        if (lo < 0)
            return;
        first = lo + 1;
        last = qMin(hi + 1, lastRow);
    }
    if (last < first)
        return;
    m.progBar->setRange(first, last + 1);
    for (int r = first; r <= last; ++r) {
        // the grid may have been emptied meanwhile (a lost connection)
        if (r > grid->lastMessageRow())
            break;
        m.progBar->setValue(r);
        switch (kind) {
        case WebFtp: {
            const qint64 n = grid->cell(r, 0).trimmed().toLongLong();
            if (n > 0 && m.downloader) {
                // every article is judged on its own
                m.S.AttachmentName.clear();
                m.S.IsYenc = m.S.IsUuencoded = m.S.IsMimeAttachment = false;
                m.downloader->NNTP_DownloadMessage(n);
                holdLists(true);
            }
            break;
        }
        case Email:
            CleanEmailAddress(grid->cell(r, 3));
            m.UpdateCaption(QStringLiteral("9"));
            break;
        case NewsServers:
            FindNewsServers(grid->cell(r, 4));
            m.UpdateCaption(QStringLiteral("10"));
            break;
        }
        if (stopped() || m.S.TransportError != 0)
            break;
        nd::yieldOnce();
    }
}
