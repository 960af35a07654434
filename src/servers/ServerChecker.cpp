#include "servers/ServerChecker.h"

#include "app/Paths.h"
#include "app/Wait.h"
#include "app/frmMain.h"
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
#include <QListView>
#include <QProgressBar>
#include <QSaveFile>

namespace {
const QString Title = QStringLiteral("Newsdredge!");
const QString GenList = QStringLiteral("@GENLIST");
const QString StateConnected = QStringLiteral("Connected to NNTP Server");
} // namespace

ServerChecker::ServerChecker(frmMain &main)
    : QObject(&main), m(main)
{
    lstTempF = new ItemList(this);
    m.wireCommand(QStringLiteral("menuCheck"), [this] { menuCheck(); });
    m.wireCommand(QStringLiteral("menuGen"), [this] { menuGen(); });
    m.wireCommand(QStringLiteral("menuScan"), [this] { menuScan(); });
    if (m.groups)
        connect(m.groups, &GroupList::groupListLoaded, this, [this] { updateGroupMarker(); });
    // Closing the window while a run holds the favourites list: give the favourites back
    // before they are written at shutdown.
    connect(&m.shell(), &Shell::shuttingDown, this, [this] {
        if (m_favoritesBorrowed) {
            m.lstFavorites->clear();
            m.favorites->LoadListFromFile(m.lstFavorites, m.opt.FavoritesFile, Favorites::FavoriteIcon);
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
    return !m_running && !m.S.QuietMode && m.servers && !m.IsConnectedIdle(true);
}

// The commands that work on the selected servers first ask for a selection.
bool ServerChecker::haveSelection()
{
    if (m.servers->lstServs->selectedCount() >= 1)
        return true;
    m.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Exclamation, Prompter::Ok, Title);
    return false;
}

void ServerChecker::menuCheck()
{
    if (!mayStart() || m.servers->lstServs->currentIndex() < 0)
        return;
    DoCheckServers(QString());
}

void ServerChecker::menuGen()
{
    if (!mayStart() || !haveSelection())
        return;
    const QString file = m.prompter().saveFileName(QStringLiteral("Generate List of Groups"), nd::appDir(),
                                                   QStringLiteral("Text (*.txt)"));
    if (file.isEmpty())
        return;
    m.S.OutputFileName = file;
    DoCheckServers(GenList);
}

void ServerChecker::menuScan()
{
    if (!mayStart() || !haveSelection())
        return;
    const auto answer = m.prompter().input(QStringLiteral("Input Group Name to Look for : "), Title);
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
        m.S.StopRequested = true;
        return true;
    }
    return m.S.StopRequested;
}

void ServerChecker::holdCommands()
{
    // connects, group lists and listings switch commands back on as they end
    for (int code : {1, 3, 5, 7, 8, 9, 52, 53})
        m.SetMenuState(code, false);
    for (const char *scope : {"CG", "SG", "SM", "FA", "SS", "SR"})
        m.MenuOnOff(QString::fromLatin1(scope), false);
    m.SetMenuState(4, true);
    m.lstGroupsView->setEnabled(false);
    m.lstFavoritesView->setEnabled(false);
}

void ServerChecker::DoCheckServers(const QString &mode)
{
    if (m_running || !m.servers || !m.session)
        return;
    m_running = true;
    StopLatch latch(m.shell());
    m_stop = &latch;
    ItemList *servs = m.servers->lstServs;

    // 1. take over the lists and the commands
    m_mode = mode;
    m_reason.clear();
    if (m.favorites)
        m.favorites->saveToCurrentFile();   // what the list holds now is what comes back at the end
    m.S.QuietMode = true;
    m.S.StopRequested = false;
    m.lstHTTP->clear();
    m_rememberedServer = m.opt.NNTPServer;
    m.SetMenuState(5, false);
    holdCommands();
    m.UpdateCaption(QStringLiteral("6"));
    m.setStatus(1, QStringLiteral("Loading Servers to Check"));
    m.lstFavorites->clear();
    m_favoritesBorrowed = true;

    try {
        // 2. the selected servers become the check list
        m.progBar->setRange(0, qMax(1, servs->count()));
        for (int i = 0; i < servs->count() && !stopped(); ++i) {
            if (servs->isSelected(i))
                m.lstFavorites->add(servs->text(i));
            m.progBar->setValue(i);
        }

        // 3. a group search extends the current favourites file
        lstTempF->clear();
        if (!m_mode.isEmpty() && m_mode != GenList)
            m.favorites->LoadListFromFile(lstTempF, m.opt.FavoritesFile, -1);

        // 4.
        m.progBar->setValue(0);
        m.UpdateCaption(QStringLiteral("7"));

        // 5. server by server
        int i = 0;
        while (i >= 0 && i < m.lstFavorites->count() && !stopped())
            visitServer(i);
    } catch (...) {
        // ends quietly; the closing steps below give everything back
    }
    finish();
    m_stop = nullptr;
    m_running = false;
}

void ServerChecker::visitServer(int &i)
{
    ItemList *check = m.lstFavorites;
    m.progBar->setRange(0, qMax(1, check->count()));
    m.progBar->setValue(i);
    check->clearSelection();
    check->setSelected(i, true);
    check->setCurrentIndex(i);

    const QString server = servers::serverNameOfItem(check->text(i));
    m.opt.NNTPServer = server;
    m.S.ServerFileTag = NewsSession::ServerFileTag(server);
    m.UpdateCaption(QStringLiteral("5"));
    m_reason.clear();

    m.lstGroups->clear();
    m.grid->ResizeGrid();        // a server that never lists is judged on an empty grid
    m.lstMsgBuffer->clear();
    m.S.FirstGroupWithMessages = -1;
    m.S.TransportError = 0;
    const QString cache = groupCacheFile(server);
    if (!m_mode.isEmpty() && QFile::exists(cache)) {
        m.lstGroups->load(cache);
        m.S.TransactionDone = true;
    } else if (m_mode.isEmpty()) {
        // a check judges the list the server gives now, never the cache
        m.session->NNTP_Connect(false);
        holdCommands();
        NewsTransport *t = m.session->transport();
        if (!stopped() && t && t->StateText() == StateConnected)
            m.groups->LoadGroupList(false);
        holdCommands();
    } else {
        m.session->NNTP_Connect(true);
        holdCommands();
    }
    m.progBar->setRange(0, qMax(1, check->count()));
    m.progBar->setValue(i);

    if (m_mode == GenList) {
        if (m.S.TransportError == 0) {
            m.setStatus(1, QStringLiteral("Generating Group List"));
            m.progBar->setRange(0, qMax(1, m.lstGroups->count()));
            QElapsedTimer slice;
            slice.start();
            QStringList lines;
            for (int g = 0; g < m.lstGroups->count(); ++g) {
                if (slice.elapsed() > 20) {
                    m.lstHTTP->addMany(lines);
                    lines.clear();
                    m.progBar->setValue(g);
                    nd::yieldOnce();
                    slice.restart();
                }
                if (stopped())
                    break;
                lines << servers::groupListLine(m.lstGroups->text(g), server);
            }
            m.lstHTTP->addMany(lines);
            m.UpdateCaption(QStringLiteral("6"));
        }
        ++i;
        return;
    }

    if (!m_mode.isEmpty()) {
        const QString wanted = m_mode;
        m.setStatus(1, QStringLiteral("Looking for Group : ") + wanted);
        // whole group names; typed capitals do not matter
        const auto findFrom = [this, &wanted](int start) {
            for (int k = qMax(0, start); k < m.lstGroups->count(); ++k)
                if (ItemList::bareGroupName(m.lstGroups->text(k)).compare(wanted, Qt::CaseInsensitive) == 0)
                    return k;
            return -1;
        };
        int at = findFrom(0);
        while (at >= 0) {
            const QString item = m.lstGroups->text(at);
            const QString name = GroupList::CleanNewsGroup(item).section(QLatin1Char('('), 0, 0).trimmed();
            // never the same group twice for one server
            if (lstTempF->findGroupOnServer(name, server) < 0) {
                const servers::FoundGroup found = servers::groupSearchLines(item, server);
                m.lstHTTP->add(found.status);
                lstTempF->add(found.favorite);
            }
            const int next = findFrom(at + 1);
            nd::yieldOnce();
            if (next <= at || stopped())
                break;
            at = next;
        }
        lstTempF->save(m.opt.FavoritesFile);   // errors ignored
        m.UpdateCaption(QStringLiteral("6"));
        ++i;
        return;
    }

    // check
    const bool readable = m.S.FirstGroupWithMessages >= 0 && m.S.FirstGroupWithMessages < m.lstGroups->count();
    if (!stopped()) {
        const int groupCount = m.lstGroups->count();
        if (groupCount >= m.opt.MinimumGroups && readable) {
            m.S.CurrentGroup = GroupList::CleanNewsGroup(m.lstGroups->text(m.S.FirstGroupWithMessages)).trimmed();
            m.messages->ListMessages(false);
            holdCommands();
            m.progBar->setRange(0, qMax(1, check->count()));
            m.progBar->setValue(i);
            if (m.S.TransportError == 0 && !stopped()) {
                m.lstHTTP->add(server + QStringLiteral(" , ") + QString::number(groupCount) + QStringLiteral(" Groups"));
                m.UpdateCaption(QStringLiteral("6"));
                updateGroupMarker();
                check->setText(i, servers::statusMarkedItem(groupCount, m.S.PostingAllowed, server));
            }
        }
        if (!stopped())
            m_reason = servers::removalReason(m.grid->lastMessageRow(), m.opt.MinimumGroups, readable);
    }
    if (!m_reason.isEmpty() && !stopped())
        RemoveBadServer(i);   // the next server moves up to i
    else
        ++i;
}

void ServerChecker::RemoveBadServer(int index)
{
    if (stopped() || index < 0 || index >= m.lstFavorites->count())
        return;
    const QString server = m.opt.NNTPServer;
    const int s = m.servers->findServer(server);
    m.lstFavorites->remove(index);
    if (s >= 0)
        m.servers->lstServs->remove(s);
    m.lstHTTP->add(server + QStringLiteral(" REMOVED:") + m_reason);
    m.UpdateCaption(QStringLiteral("6"));
    m.UpdateCaption(QStringLiteral("7"));

    QFile log(checkLogFile());
    if (log.open(QIODevice::Append))
        log.write(servers::checkLogLine(server, m_reason, QDateTime::currentDateTime()));

    const QString cache = groupCacheFile(server);
    if (QFile::exists(cache))
        QFile::remove(cache);
}

void ServerChecker::updateGroupMarker()
{
    if (!m.servers || m.lstGroups->count() == 0)
        return;
    const QString server = m.opt.NNTPServer;
    const int i = m.servers->findServer(server);
    if (i < 0)
        return;
    const QString marked = servers::statusMarkedItem(m.lstGroups->count(), m.S.PostingAllowed, server);
    if (m.servers->lstServs->text(i) == marked)
        return;
    m.servers->lstServs->setText(i, marked);
    // a run saves the list as it ends; a normal connect keeps the mark at once
    if (!m_running)
        m.servers->save();
}

void ServerChecker::finish()
{
    // 6.
    m.session->NNTP_Disconnect();
    holdCommands();

    // 7. the favourites file with what the search added
    if (!m_mode.isEmpty() && m_mode != GenList)
        lstTempF->save(m.opt.FavoritesFile);   // errors ignored

    // 8. the group-list file
    if (m_mode == GenList && m.lstHTTP->count() > 0) {
        m.setStatus(1, QStringLiteral("Saving Data"));
        nd::yieldOnce();
        QSaveFile out(m.S.OutputFileName);
        bool ok = out.open(QIODevice::WriteOnly);
        if (ok) {
            for (const QString &line : m.lstHTTP->texts())
                out.write(line.toUtf8() + "\r\n");
            ok = out.commit();
        }
        if (ok)
            m.prompter().message(QStringLiteral("File Saved : (") + m.S.OutputFileName + QLatin1Char(')'),
                                 Prompter::Exclamation, Prompter::Ok, Title);
        else
            m.prompter().message(QStringLiteral("Error Saving File : (") + m.S.OutputFileName + QLatin1Char(')'),
                                 Prompter::Critical, Prompter::Ok, Title);
    }

    // 9. give the lists back
    lstTempF->clear();
    m.lstGroups->clear();
    m.lstHTTP->clear();
    m.UpdateCaption(QStringLiteral("4"));
    m.setStatus(1, QStringLiteral("Loading Favorites"));
    m.lstFavorites->clear();
    m.opt.NNTPServer = m_rememberedServer;
    m.S.ServerFileTag = NewsSession::ServerFileTag(m_rememberedServer);
    m.UpdateCaption(QStringLiteral("5"));
    m.UpdateCaption(QStringLiteral("2"));

    // 10. the checked server list, written and read back
    if (m_mode.isEmpty()) {
        m.servers->save();
        m.servers->lstServs->clear();
        m.servers->load();
        m.servers->refreshCaption();
    }

    // 11.
    m.progBar->setValue(0);
    m_mode.clear();
    m.session->NNTP_Disconnect();
    m.S.QuietMode = false;
    m.favorites->LoadListFromFile(m.lstFavorites, m.opt.FavoritesFile, Favorites::FavoriteIcon);
    m_favoritesBorrowed = false;
    m.UpdateCaption(QStringLiteral("0"));
    m.lstGroupsView->setEnabled(true);
    m.lstFavoritesView->setEnabled(true);
    m.session->applyDisconnectedState();
    if (m_stop->stopped())
        m.setStatus(1, QStringLiteral("Stopped"));
    m.setBusy(false);
}
