#include "servers/ServerChecker.h"

#include "app/Paths.h"
#include "app/Shell.h"
#include "app/Wait.h"
#include "groups/Favorites.h"
#include "groups/GroupList.h"
#include "groups/StopLatch.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "servers/CheckRules.h"
#include "servers/ServerList.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace {
const QString Title = QStringLiteral("Newsdredge!");
const QString GenList = QStringLiteral("@GENLIST");

// Commands a run keeps off; connects, group lists and listings switch them back on as they end.
constexpr nd::Cmd HeldCommands[] = {nd::Cmd::Setup,    nd::Cmd::Groups,          nd::Cmd::Connect,
                                    nd::Cmd::Download, nd::Cmd::DownloadAll,     nd::Cmd::View,
                                    nd::Cmd::RefreshMessages, nd::Cmd::RefreshGroups};
constexpr nd::Scope HeldScopes[] = {nd::Scope::CurrentGroup,     nd::Scope::SelectedGroups,
                                    nd::Scope::SelectedMessages, nd::Scope::Favorites,
                                    nd::Scope::SelectedServers,  nd::Scope::ServerRuns};

// A list file is read when the name is that of a file (not empty, not a directory).
void loadListFile(ItemList &list, const QString &path)
{
    if (path.isEmpty() || path.endsWith(QLatin1Char('/')) || path.endsWith(QLatin1Char('\\'))
        || !QFileInfo(path).isFile())
        return;
    list.load(path);
}
} // namespace

ServerChecker::ServerChecker(Shell &shell, const Collaborators &p, QObject *parent)
    : QObject(parent), sh(shell), lstGroups(p.lstGroups), lstFavorites(p.lstFavorites), lstHTTP(p.lstHTTP),
      lstMsgBuffer(p.lstMsgBuffer), grid(p.grid), servers(p.servers), session(p.session), groups(p.groups),
      messages(p.messages), favorites(p.favorites)
{
    lstTempF = new ItemList(this);
    sh.wireCommand(QStringLiteral("menuCheck"), [this] { menuCheck(); });
    sh.wireCommand(QStringLiteral("menuGen"), [this] { menuGen(); });
    sh.wireCommand(QStringLiteral("menuScan"), [this] { menuScan(); });
    connect(&groups, &GroupList::groupListLoaded, this, [this] { updateGroupMarker(); });
    // Closing the window while a run holds the favourites list: give the favourites back
    // before they are written at shutdown.
    connect(&sh, &Shell::shuttingDown, this, [this] {
        if (m_favoritesBorrowed) {
            lstFavorites.clear();
            favorites.LoadListFromFile(&lstFavorites, sh.opt.FavoritesFile, Favorites::FavoriteIcon);
            m_favoritesBorrowed = false;
        }
    });
}

ServerChecker::~ServerChecker() = default;

QString ServerChecker::checkLogFile()
{
    return nd::appFile(QStringLiteral("CHECK.LOG"));
}

QString ServerChecker::groupCacheFile(const QString &server)
{
    return nd::cacheDir() + QLatin1Char('/') + NewsSession::ServerFileTag(server);
}

// ------------------------------------------------------------------ commands

// The three commands run over several servers: none starts while another run or a session is
// going ("Please Disconnect First").
bool ServerChecker::mayStart()
{
    return !m_running && !sh.S.QuietMode && !session.IsConnectedIdle(true);
}

// The commands that work on the selected servers first ask for a selection.
bool ServerChecker::haveSelection()
{
    if (servers.lstServs->selectedCount() >= 1)
        return true;
    sh.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Exclamation, Prompter::Ok, Title);
    return false;
}

void ServerChecker::menuCheck()
{
    if (!mayStart() || servers.lstServs->currentIndex() < 0)
        return;
    DoCheckServers(QString());
}

void ServerChecker::menuGen()
{
    if (!mayStart() || !haveSelection())
        return;
    const QString file = sh.prompter().saveFileName(QStringLiteral("Generate List of Groups"), nd::appDir(),
                                                    QStringLiteral("Text (*.txt)"));
    if (file.isEmpty())
        return;
    sh.S.OutputFileName = file;
    DoCheckServers(GenList);
}

void ServerChecker::menuScan()
{
    if (!mayStart() || !haveSelection())
        return;
    const auto answer = sh.prompter().input(QStringLiteral("Input Group Name to Look for : "), Title);
    if (!answer || answer->trimmed().isEmpty())
        return;
    const QString group = answer->trimmed();
    if (group == GenList)
        return;   // not a group name; it would select the group-list run
    DoCheckServers(group);
}

// ------------------------------------------------------------------ the run

bool ServerChecker::stopped() const
{
    if (m_stop && m_stop->stopped()) {
        // disconnects and listings clear the flag; keep it up so their waits end at once
        sh.S.StopRequested = true;
        return true;
    }
    return sh.S.StopRequested;
}

void ServerChecker::holdCommands()
{
    for (nd::Cmd c : HeldCommands)
        sh.SetMenuState(c, false);
    for (nd::Scope s : HeldScopes)
        sh.MenuOnOff(s, false);
    sh.SetMenuState(nd::Cmd::Stop, true);
    sh.setViewEnabled(nd::View::Groups, false);
    sh.setViewEnabled(nd::View::Favorites, false);
}

void ServerChecker::DoCheckServers(const QString &mode)
{
    if (m_running)
        return;
    m_running = true;
    StopLatch latch(sh);
    m_stop = &latch;
    m_mode = mode;
    m_reason.clear();
    takeOver();
    try {
        loadCheckList();
        int i = 0;
        while (i >= 0 && i < lstFavorites.count() && !stopped())
            visitServer(i);
    } catch (...) {
        // ends quietly; the closing steps below give everything back
    }
    finish();
    m_stop = nullptr;
    m_running = false;
}

void ServerChecker::takeOver()
{
    favorites.saveToCurrentFile();   // what the list holds now is what comes back at the end
    sh.S.QuietMode = true;
    sh.S.StopRequested = false;
    lstHTTP.clear();
    m_rememberedServer = sh.opt.NNTPServer;
    sh.SetMenuState(nd::Cmd::Connect, false);
    holdCommands();
    sh.UpdateCaption(nd::Caption::Found);
    sh.setStatus(nd::PanelState, QStringLiteral("Loading Servers to Check"));
    lstFavorites.clear();
    m_favoritesBorrowed = true;
}

void ServerChecker::loadCheckList()
{
    ItemList *servs = servers.lstServs;
    sh.setProgressRange(0, qMax(1, servs->count()));
    for (int i = 0; i < servs->count() && !stopped(); ++i) {
        if (servs->isSelected(i))
            lstFavorites.add(servs->text(i));
        sh.setProgress(i);
    }
    // a group search extends the current favourites file
    lstTempF->clear();
    if (!m_mode.isEmpty() && m_mode != GenList)
        loadListFile(*lstTempF, sh.opt.FavoritesFile);
    sh.setProgress(0);
    sh.UpdateCaption(nd::Caption::Checking);
}

void ServerChecker::showProgress(int i)
{
    sh.setProgressRange(0, qMax(1, lstFavorites.count()));
    sh.setProgress(i);
}

void ServerChecker::visitServer(int &i)
{
    showProgress(i);
    lstFavorites.clearSelection();
    lstFavorites.setSelected(i, true);
    lstFavorites.setCurrentIndex(i);

    const QString server = servers::serverNameOfItem(lstFavorites.text(i));
    sh.opt.NNTPServer = server;
    sh.S.ServerFileTag = NewsSession::ServerFileTag(server);
    sh.UpdateCaption(nd::Caption::Title);
    m_reason.clear();

    const bool listed = fetchGroups(server);
    showProgress(i);

    if (m_mode == GenList) {
        if (listed)
            writeGroupList(server);
        ++i;
    } else if (!m_mode.isEmpty()) {
        searchGroup(server);
        ++i;
    } else if (checkServer(i, server)) {
        ++i;
    } else {
        RemoveBadServer(i);   // the next server moves up to i
    }
}

// The server's group list: from its cache for a list or a search, fresh from the server for a
// check (a check judges the list the server gives now).
bool ServerChecker::fetchGroups(const QString &server)
{
    lstGroups.clear();
    grid.ResizeGrid();        // a server that never lists is judged on an empty grid
    lstMsgBuffer.clear();
    sh.S.FirstGroupWithMessages = -1;
    sh.S.TransportError = 0;
    const QString cache = groupCacheFile(server);
    if (!m_mode.isEmpty() && QFile::exists(cache)) {
        lstGroups.load(cache);
        sh.S.TransactionDone = true;
        return true;
    }
    const bool connected = session.NNTP_Connect(false);
    holdCommands();
    TransactionResult r;
    r.outcome = TransactionResult::Outcome::Stopped;
    if (connected && !stopped())
        r = groups.LoadGroupList(!m_mode.isEmpty());   // a list or a search takes a cache a connect finds
    holdCommands();
    return connected && r.outcome != TransactionResult::Outcome::Failed;
}

void ServerChecker::writeGroupList(const QString &server)
{
    sh.setStatus(nd::PanelState, QStringLiteral("Generating Group List"));
    sh.setProgressRange(0, qMax(1, lstGroups.count()));
    QElapsedTimer slice;
    slice.start();
    QStringList lines;
    for (int g = 0; g < lstGroups.count(); ++g) {
        if (slice.elapsed() > 20) {
            lstHTTP.addMany(lines);
            lines.clear();
            sh.setProgress(g);
            nd::yieldOnce();
            slice.restart();
        }
        if (stopped())
            break;
        lines << servers::groupListLine(lstGroups.text(g), server);
    }
    lstHTTP.addMany(lines);
    sh.UpdateCaption(nd::Caption::Found);
}

void ServerChecker::searchGroup(const QString &server)
{
    const QString wanted = m_mode;
    sh.setStatus(nd::PanelState, QStringLiteral("Looking for Group : ") + wanted);
    // whole group names; typed capitals do not matter
    const auto findFrom = [this, &wanted](int start) {
        for (int k = qMax(0, start); k < lstGroups.count(); ++k)
            if (ItemList::bareGroupName(lstGroups.text(k)).compare(wanted, Qt::CaseInsensitive) == 0)
                return k;
        return -1;
    };
    int at = findFrom(0);
    while (at >= 0) {
        const QString item = lstGroups.text(at);
        const QString name = GroupList::CleanNewsGroup(item).section(QLatin1Char('('), 0, 0).trimmed();
        // never the same group twice for one server
        if (lstTempF->findGroupOnServer(name, server) < 0) {
            const servers::FoundGroup found = servers::groupSearchLines(item, server);
            lstHTTP.add(found.status);
            lstTempF->add(found.favorite);
        }
        const int next = findFrom(at + 1);
        nd::yieldOnce();
        if (next <= at || stopped())
            break;
        at = next;
    }
    lstTempF->save(sh.opt.FavoritesFile);   // errors ignored
    sh.UpdateCaption(nd::Caption::Found);
}

// Lists the first group with messages and judges the server on what came; the reason a
// failed server goes is left in m_reason.
bool ServerChecker::checkServer(int i, const QString &server)
{
    const int first = sh.S.FirstGroupWithMessages;
    const bool readable = first >= 0 && first < lstGroups.count();
    if (!stopped()) {
        const int groupCount = lstGroups.count();
        if (groupCount >= sh.opt.MinimumGroups && readable) {
            sh.S.CurrentGroup = GroupList::CleanNewsGroup(lstGroups.text(first)).trimmed();
            const bool listed = !messages.listMessages(false).failed;
            holdCommands();
            showProgress(i);
            if (listed && !stopped()) {
                lstHTTP.add(server + QStringLiteral(" , ") + QString::number(groupCount) + QStringLiteral(" Groups"));
                sh.UpdateCaption(nd::Caption::Found);
                updateGroupMarker();
                lstFavorites.setText(i, servers::statusMarkedItem(groupCount, sh.S.PostingAllowed, server));
            }
        }
        if (!stopped())
            m_reason = servers::removalReason(grid.lastMessageRow(), sh.opt.MinimumGroups, readable);
    }
    return m_reason.isEmpty() || stopped();
}

void ServerChecker::RemoveBadServer(int index)
{
    if (stopped() || index < 0 || index >= lstFavorites.count())
        return;
    const QString server = sh.opt.NNTPServer;
    const int s = servers.findServer(server);
    lstFavorites.remove(index);
    if (s >= 0)
        servers.lstServs->remove(s);
    lstHTTP.add(server + QStringLiteral(" REMOVED:") + m_reason);
    sh.UpdateCaption(nd::Caption::Found);
    sh.UpdateCaption(nd::Caption::Checking);

    QFile log(checkLogFile());
    if (log.open(QIODevice::Append))
        log.write(servers::checkLogLine(server, m_reason, QDateTime::currentDateTime()));

    const QString cache = groupCacheFile(server);
    if (QFile::exists(cache))
        QFile::remove(cache);
}

void ServerChecker::updateGroupMarker()
{
    if (lstGroups.count() == 0)
        return;
    const QString server = sh.opt.NNTPServer;
    const int i = servers.findServer(server);
    if (i < 0)
        return;
    const QString marked = servers::statusMarkedItem(lstGroups.count(), sh.S.PostingAllowed, server);
    if (servers.lstServs->text(i) == marked)
        return;
    servers.lstServs->setText(i, marked);
    // a run saves the list as it ends; a normal connect keeps the mark at once
    if (!m_running)
        servers.save();
}

// ------------------------------------------------------------------ closing steps

void ServerChecker::finish()
{
    session.NNTP_Disconnect();
    holdCommands();

    // the favourites file with what the search added
    if (!m_mode.isEmpty() && m_mode != GenList)
        lstTempF->save(sh.opt.FavoritesFile);   // errors ignored
    if (m_mode == GenList && lstHTTP.count() > 0)
        saveGroupListFile();
    giveBack();
}

void ServerChecker::saveGroupListFile()
{
    sh.setStatus(nd::PanelState, QStringLiteral("Saving Data"));
    nd::yieldOnce();
    QSaveFile out(sh.S.OutputFileName);
    bool ok = out.open(QIODevice::WriteOnly);
    if (ok) {
        for (const QString &line : lstHTTP.texts())
            out.write(line.toUtf8() + "\r\n");
        ok = out.commit();
    }
    if (ok)
        sh.prompter().message(QStringLiteral("File Saved : (") + sh.S.OutputFileName + QLatin1Char(')'),
                              Prompter::Exclamation, Prompter::Ok, Title);
    else
        sh.prompter().message(QStringLiteral("Error Saving File : (") + sh.S.OutputFileName + QLatin1Char(')'),
                              Prompter::Critical, Prompter::Ok, Title);
}

void ServerChecker::giveBack()
{
    lstTempF->clear();
    lstGroups.clear();
    lstHTTP.clear();
    sh.UpdateCaption(nd::Caption::WebAddresses);
    sh.setStatus(nd::PanelState, QStringLiteral("Loading Favorites"));
    lstFavorites.clear();
    sh.opt.NNTPServer = m_rememberedServer;
    sh.S.ServerFileTag = NewsSession::ServerFileTag(m_rememberedServer);
    sh.UpdateCaption(nd::Caption::Title);
    sh.UpdateCaption(nd::Caption::Groups);

    // the checked server list, written and read back
    if (m_mode.isEmpty()) {
        servers.save();
        servers.lstServs->clear();
        servers.load();
        servers.refreshCaption();
    }

    sh.setProgress(0);
    m_mode.clear();
    session.NNTP_Disconnect();
    sh.S.QuietMode = false;
    favorites.LoadListFromFile(&lstFavorites, sh.opt.FavoritesFile, Favorites::FavoriteIcon);
    m_favoritesBorrowed = false;
    sh.UpdateCaption(nd::Caption::Favorites);
    sh.setViewEnabled(nd::View::Groups, true);
    sh.setViewEnabled(nd::View::Favorites, true);
    session.applyDisconnectedState();
    if (m_stop->stopped())
        sh.setStatus(nd::PanelState, QStringLiteral("Stopped"));
    sh.setBusy(false);
}
