#include "harvest/Harvester.h"

#include "app/Paths.h"
#include "app/Shell.h"
#include "app/Wait.h"
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
#include <QItemSelectionModel>

namespace {

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

// The address list's caption for the addresses of a kind.
nd::Caption kindCaption(Harvester::HarvestKind kind)
{
    return kind == Harvester::Email ? nd::Caption::EmailAddresses
         : kind == Harvester::NewsServers ? nd::Caption::ServerAddresses
                                          : nd::Caption::WebAddresses;
}

// "group (count)" or "group" -> the group name.
QString groupOfItem(const QString &item)
{
    const qsizetype paren = item.indexOf(QLatin1Char('('));
    return GroupList::CleanNewsGroup(paren >= 0 ? item.left(paren) : item).trimmed();
}

} // namespace

Harvester::Harvester(Shell &shell, const Collaborators &p, QObject *parent)
    : QObject(parent), sh(shell), lstHTTP(p.lstHTTP), lstGroups(p.lstGroups), lstFavorites(p.lstFavorites),
      grid(p.grid), gridSelection(p.gridSelection), servers(p.servers), session(p.session), groups(p.groups),
      messages(p.messages), downloader(p.downloader)
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
        sh.wireCommand(QString::fromLatin1(c.menu), [this, scope = c.scope, kind = c.kind] { command(scope, kind); });
    // the window starts disconnected: the commands that need a listing wait for one
    for (nd::Cmd c : {nd::Cmd::WebCurrent, nd::Cmd::EmailCurrent, nd::Cmd::ServersCurrent, nd::Cmd::WebGroups,
                      nd::Cmd::EmailGroups, nd::Cmd::ServersGroups, nd::Cmd::WebMessages})
        sh.SetMenuState(c, false);
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

nd::Scope Harvester::commandScope(HarvestScope scope)
{
    switch (scope) {
    case CurrentGroup:
        return nd::Scope::CurrentGroup;
    case SelectedGroups:
        return nd::Scope::SelectedGroups;
    case SelectedFavorites:
        return nd::Scope::Favorites;
    case SelectedMessages:
        return nd::Scope::SelectedMessages;
    case SelectedServers:
        return nd::Scope::SelectedServers;
    }
    return nd::Scope::CurrentGroup;
}

QString Harvester::linkFile()
{
    return nd::appFile(QStringLiteral("UsenetHTTP.htm"));
}

void Harvester::OpenSelectedAddress()
{
    if (lstHTTP.selectedCount() < 1) {
        sh.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Exclamation, Prompter::Ok,
                              QStringLiteral("Newsdredge!"));
        return;
    }
    int i = lstHTTP.currentIndex();
    if (i < 0 || !lstHTTP.isSelected(i))
        i = lstHTTP.selectedIndexes().first();
    sh.OpenDocument(lstHTTP.text(i));
}

// ------------------------------------------------------------------ questions

bool Harvester::AskOutputFile()
{
    QString name;
    try {
        const QString dir = sh.S.OutputFileName.isEmpty() ? nd::appDir() : QFileInfo(sh.S.OutputFileName).absolutePath();
        name = sh.prompter().saveFileName(QStringLiteral("Output File"), dir, QStringLiteral("Text (*.txt)|*.txt"));
    } catch (...) {
        return false;
    }
    if (name.isEmpty())
        return false;
    sh.S.OutputFileName = name;
    return true;
}

bool Harvester::AskEmailSearch()
{
    sh.prompter().message(QStringLiteral("Please Specify Output File"), Prompter::Information, Prompter::Ok,
                          QStringLiteral("Newsdredge!"));
    if (!AskOutputFile())
        return false;
    const std::optional<QString> answer
        = sh.prompter().input(QStringLiteral("Enter search string for email address (Press ENTER for ALL addresses)"),
                              QStringLiteral("Enter Search String"), QString());
    EmailSearchText = answer.value_or(QString());
    return true;
}

// ------------------------------------------------------------------ output file

bool Harvester::openOutputFile()
{
    closeOutputFile();
    m_outputFailed = false;
    if (sh.S.OutputFileName.isEmpty())
        return false;
    m_output.setFileName(sh.S.OutputFileName);
    if (!m_output.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        m_outputFailed = true;
        sh.prompter().message(QStringLiteral("Unable to write ") + sh.S.OutputFileName
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
        sh.setStatus(nd::PanelDetail, QStringLiteral("Unable to write ") + m_output.fileName());
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
    try {
        harvest::WebSwitches sw;
        sw.webSave = sh.opt.WEBSave;
        sw.ftpSave = sh.opt.FTPSave;
        sw.saveHttp = sh.opt.SaveHTTP != 0;
        sw.saveFtp = sh.opt.SaveFTP != 0;
        harvest::findWebAddresses(
            text, sw, [this](const QString &a) { return lstHTTP.find(a) >= 0; },
            [this](const QString &a) { return keepWebAddress(a); });
    } catch (...) {
        sh.setStatus(nd::PanelDetail, QStringLiteral("Error Saving/Accessing Web Address File!"));
    }
}

// Lists a new address and appends it to the links page unless a line there holds it already.
bool Harvester::keepWebAddress(const QString &a)
{
    const auto fail = [this] {
        sh.setStatus(nd::PanelDetail, QStringLiteral("Error Saving/Accessing Web Address File!"));
        return false;
    };
    lstHTTP.add(a);
    sh.UpdateCaption(nd::Caption::WebAddresses);
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
}

void Harvester::CleanEmailAddress(const QString &text)
{
    const QString address = harvest::cleanEmailAddress(text);
    if (!harvest::emailWanted(address, EmailSearchText) || lstHTTP.find(address) >= 0)
        return;
    lstHTTP.add(address);
    sh.setStatus(nd::PanelState, address);
    writeOutputLine(address);
}

void Harvester::FindNewsServers(const QString &path)
{
    servers.ensureLoaded();
    bool added = false;
    for (const QString &name : harvest::newsServersInPath(path)) {
        if (lstHTTP.find(name) >= 0 || servers.findServer(name) >= 0)
            continue;
        servers.lstServs->add(harvest::uncheckedServerItem(name));
        lstHTTP.add(name);
        sh.setStatus(nd::PanelState, name);
        writeOutputLine(name);
        added = true;
    }
    if (!added)
        return;
    m_serversAdded = true;
    if (!m_running) {
        // a run saves the server list once at its end
        servers.save();
        servers.refreshCaption();
    }
}

// ------------------------------------------------------------------ runs

bool Harvester::stopped() const
{
    return sh.S.StopRequested || (m_latch && m_latch->stopped());
}

void Harvester::holdLists(bool hold)
{
    sh.setViewEnabled(nd::View::Favorites, !hold);
    sh.setViewEnabled(nd::View::Messages, !hold);
    sh.setViewEnabled(nd::View::Groups, !hold);
    // a new group list, a listing or a reconnect in the middle would end the run early
    if (hold)
        m_heldCommands.hold(sh, nd::cmds::HarvestBreakers);
    else
        m_heldCommands.release(sh, session.isConnected());
}

void Harvester::command(HarvestScope scope, HarvestKind kind)
{
    // one batch run at a time (server checking borrows the same lists under QuietMode)
    if (m_running || sh.S.QuietMode)
        return;
    if (sh.S.DownloadBusy || session.transactionRunning() || messages.listingInProgress()) {
        sh.setStatus(nd::PanelDetail, QStringLiteral("Please wait until current transaction is finished"));
        return;
    }
    if (kind == NewsServers && !AskOutputFile())
        return;
    DoAdvanced(scope, kind);
}

bool Harvester::listCurrentGroup(HarvestScope scope)
{
    sh.S.QuietMode = false;
    const bool listed = !messages.listMessages(true).failed;
    sh.S.QuietMode = true;
    // the listing hands its commands and lists back; the run still holds them
    sh.MenuOnOff(commandScope(scope), false);
    holdLists(true);
    return listed;
}

void Harvester::DoAdvanced(HarvestScope scope, HarvestKind kind)
{
    if (m_running)
        return;
    m_running = true;
    m_serversAdded = false;
    StopLatch latch(sh);
    m_latch = &latch;

    try {
        sh.S.TransportError = 0;
        sh.S.StopRequested = false;
        sh.SetMenuState(nd::Cmd::Stop, true);
        holdLists(true);
        lstHTTP.clear();
        sh.UpdateCaption(nd::Caption::WebAddresses);
        sh.MenuOnOff(commandScope(scope), false);
        if (beginRun(kind))
            runItems(scope, kind, runCaption(kind));
    } catch (...) {
        // the closing steps below still run
    }
    endRun(scope);
    m_latch = nullptr;
    m_running = false;
}

bool Harvester::beginRun(HarvestKind kind)
{
    switch (kind) {
    case WebFtp:
        sh.S.ScanMode = true;
        sh.UpdateCaption(nd::Caption::WebAddresses);
        return true;
    case Email:
        sh.UpdateCaption(nd::Caption::EmailAddresses);
        sh.S.QuietMode = true;
        return AskEmailSearch();
    case NewsServers:
        sh.S.QuietMode = true;
        sh.UpdateCaption(nd::Caption::ServerAddresses);
        return true;
    }
    return false;
}

// Gives back what the run held: the scope's commands, the group list or the session it
// changed, the server list it extended, the lists, Stop and the progress bar.
void Harvester::endRun(HarvestScope scope)
{
    try {
        closeOutputFile();
        sh.MenuOnOff(commandScope(scope), true);
        if (scope == SelectedGroups) {
            sh.S.QuietMode = false;
            if (session.isConnected())
                groups.LoadGroupList(true);
        } else if (scope == SelectedFavorites || scope == SelectedServers) {
            sh.S.QuietMode = false;
            session.NNTP_Disconnect();
        }
        if (m_serversAdded) {
            servers.save();
            servers.refreshCaption();
        }
    } catch (...) {
    }
    sh.S.ScanMode = false;
    holdLists(false);
    sh.setStatus(nd::PanelDetail, QString());
    sh.SetMenuState(nd::Cmd::Stop, false);
    sh.S.QuietMode = false;
    sh.setProgressRange(0, 100);
    sh.setProgress(0);
}

// The items a run over a list visits, taken before the run changes any list.
QStringList Harvester::selectedItems(HarvestScope scope)
{
    ItemList *list = nullptr;
    if (scope == SelectedGroups) {
        list = &lstGroups;
    } else if (scope == SelectedFavorites) {
        list = &lstFavorites;
    } else if (scope == SelectedServers) {
        servers.ensureLoaded();
        list = servers.lstServs;
    }
    QStringList items;
    if (list)
        for (int i : list->selectedIndexes())
            items << list->text(i);
    return items;
}

void Harvester::runItems(HarvestScope scope, HarvestKind kind, const QString &caption)
{
    QStringList items;
    if (scope == SelectedGroups || scope == SelectedFavorites || scope == SelectedServers) {
        items = selectedItems(scope);
        if (items.isEmpty()) {
            sh.prompter().message(QStringLiteral("Must select items first."), Prompter::Information, Prompter::Ok,
                                  QStringLiteral("Newsdredge"));
            return;
        }
    }

    sh.setStatus(nd::PanelDetail, QStringLiteral("Finding ") + caption);
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
        scanGroups(items, kind);
        break;
    case SelectedFavorites:
        scanFavorites(items, kind);
        break;
    case SelectedServers:
        scanServers(items, kind);
        break;
    }

    sh.setStatus(nd::PanelState, QStringLiteral("Finished finding ") + caption);
    sh.prompter().message(QString::number(lstHTTP.count()) + QLatin1Char(' ') + caption
                              + QStringLiteral(" found and saved."),
                          Prompter::Information, Prompter::Ok, QStringLiteral("Newsdredge"));
    sh.UpdateCaption(nd::Caption::WebAddresses);
}

void Harvester::scanGroups(const QStringList &items, HarvestKind kind)
{
    for (const QString &item : items) {
        sh.S.CurrentGroup = groupOfItem(item);
        listCurrentGroup(SelectedGroups);
        if (!stopped())
            ScanMessageRows(true, SelectedGroups, kind);
        if (stopped())
            break;
    }
}

// Each favourite on its own server.
void Harvester::scanFavorites(const QStringList &items, HarvestKind kind)
{
    for (const QString &item : items) {
        const qsizetype space = item.indexOf(QLatin1Char(' '));
        const QString group = GroupList::CleanNewsGroup(space >= 0 ? item.left(space) : item).trimmed();
        const QString server = FavoriteRules::GetServerName(item);
        if (group.isEmpty() || server.isEmpty())
            continue;
        sh.opt.NNTPServer = server;
        sh.UpdateCaption(nd::Caption::Title);
        if (session.transport() && session.transport()->Host() != server)
            session.NNTP_Disconnect();
        if (stopped())
            break;
        session.NNTP_Connect(false);
        if (stopped())
            break;
        sh.S.CurrentGroup = group;
        listCurrentGroup(SelectedFavorites);
        if (!stopped())
            ScanMessageRows(true, SelectedFavorites, kind);
        if (stopped())
            break;
    }
}

// Every server is scanned with its own groups.
void Harvester::scanServers(const QStringList &items, HarvestKind kind)
{
    for (const QString &item : items) {
        const qsizetype gap = item.indexOf(QLatin1String("   "));
        const QString server = (gap >= 0 ? item.mid(gap + 3) : item).trimmed();
        if (server.isEmpty())
            continue;
        sh.opt.NNTPServer = server;
        sh.UpdateCaption(nd::Caption::Title);
        lstGroups.clear();
        session.NNTP_Disconnect();
        if (stopped())
            break;
        session.NNTP_Connect(true);
        holdLists(true);
        scanServerGroups(kind);
        if (stopped())
            break;
    }
}

void Harvester::scanServerGroups(HarvestKind kind)
{
    const QStringList groupItems = lstGroups.texts();
    for (const QString &g : groupItems) {
        if (stopped())
            break;
        sh.UpdateCaption(kindCaption(kind));
        sh.UpdateCaption(nd::Caption::Groups);
        sh.S.CurrentGroup = groupOfItem(g);
        const bool listed = listCurrentGroup(SelectedServers);
        int error = 0;
        if (!stopped())
            error = ScanMessageRows(true, SelectedServers, kind);
        // a server that fails a listing or an article is left for the next one
        if (stopped() || !listed || error != 0)
            break;
    }
}

int Harvester::ScanMessageRows(bool allRows, HarvestScope scope, HarvestKind kind)
{
    Q_UNUSED(scope);
    const int lastRow = grid.lastMessageRow();
    int first = 1;
    int last = lastRow;
    if (!allRows) {
        int lo = -1, hi = -1;
        for (const QModelIndex &i : gridSelection.selectedRows()) {
            lo = lo < 0 ? i.row() : qMin(lo, i.row());
            hi = qMax(hi, i.row());
        }
        if (lo < 0 && gridSelection.currentIndex().isValid())
            lo = hi = gridSelection.currentIndex().row();
        if (lo < 0)
            return 0;
        first = lo + 1;
        last = qMin(hi + 1, lastRow);
    }
    if (last < first)
        return 0;
    sh.setProgressRange(first, last + 1);
    for (int r = first; r <= last; ++r) {
        // the grid may have been emptied meanwhile (a lost connection)
        if (r > grid.lastMessageRow())
            break;
        sh.setProgress(r);
        if (const int error = scanRow(r, kind); error != 0)
            return error;
        if (stopped())
            break;
        nd::yieldOnce();
    }
    return 0;
}

int Harvester::scanRow(int r, HarvestKind kind)
{
    switch (kind) {
    case WebFtp: {
        const qint64 n = grid.cell(r, MessageGrid::ColArticle).trimmed().toLongLong();
        if (n > 0) {
            // every article is judged on its own
            sh.S.AttachmentName.clear();
            sh.S.IsYenc = sh.S.IsUuencoded = sh.S.IsMimeAttachment = false;
            const ArticleFetch fetch = downloader.NNTP_DownloadMessage(n);
            holdLists(true);
            return fetch.error;
        }
        break;
    }
    case Email:
        CleanEmailAddress(grid.cell(r, MessageGrid::ColFrom));
        sh.UpdateCaption(nd::Caption::EmailAddresses);
        break;
    case NewsServers:
        FindNewsServers(grid.cell(r, MessageGrid::ColPath));
        sh.UpdateCaption(nd::Caption::ServerAddresses);
        break;
    }
    return 0;
}
