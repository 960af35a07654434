#include "groups/GroupList.h"

#include "app/Paths.h"
#include "app/Shell.h"
#include "app/Wait.h"
#include "groups/Favorites.h"
#include "messages/MessageGrid.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QElapsedTimer>
#include <QFile>

GroupList::GroupList(Shell &shell, NewsSession &session, ItemList &lstGroups, ItemList &lstMsgBuffer,
                     MessageGrid &grid, QObject *parent)
    : QObject(parent), sh(shell), m_session(session), m_groups(lstGroups), m_msgBuffer(lstMsgBuffer), m_grid(grid)
{
    // a Stop of an earlier run (a listing, say) must not end the list the user asks for now;
    // batch runs that call LoadGroupList keep their own Stop
    sh.wireCommand(QStringLiteral("menuGroup"), [this] {
        sh.S.StopRequested = false;
        LoadGroupList(true);
    });
    sh.wireCommand(QStringLiteral("menuRefreshG"), [this] {
        sh.S.StopRequested = false;
        LoadGroupList(false);
    });
    connect(&sh, &Shell::groupListWanted, this, [this](bool useCache) { LoadGroupList(useCache); });
    sh.SetMenuState(nd::Cmd::Groups, false);
    sh.SetMenuState(nd::Cmd::RefreshGroups, false);
}

QString GroupList::CleanNewsGroup(const QString &item)
{
    return ItemList::bareGroupName(item);
}

QString GroupList::cacheFile() const
{
    return nd::cacheDir() + QLatin1Char('/') + sh.S.ServerFileTag;
}

QString GroupList::groupItem(const QString &name, qint64 first, qint64 last)
{
    const qint64 count = last - first;
    if (count < 1)
        return name + QStringLiteral(" (0)");
    return ItemList::marked(QLatin1Char('1'), name + QStringLiteral(" (%1)").arg(count));
}

void GroupList::openSelectedGroup()
{
    if (sh.S.QuietMode)
        return;
    if (m_groups.selectedCount() > 1) {
        sh.prompter().message(QStringLiteral("Please Only Select 1 Group"), Prompter::Exclamation, Prompter::Ok,
                              QStringLiteral("Newsdredge!"));
        return;
    }
    int i = m_groups.currentIndex();
    if (i < 0 && m_groups.selectedCount() == 1)
        i = m_groups.selectedIndexes().first();
    if (i < 0)
        return;
    QString item = m_groups.text(i);
    const qsizetype paren = item.indexOf(QLatin1Char('('));
    if (paren >= 0)
        item.truncate(paren);
    sh.S.CurrentGroup = CleanNewsGroup(item).trimmed();
    sh.setViewEnabled(nd::View::Groups, false);
    emit listMessagesWanted();
    sh.setViewEnabled(nd::View::Groups, true);
}

// ------------------------------------------------------------------ loading

TransactionResult GroupList::LoadGroupList(bool useCache)
{
    beginLoad();
    TransactionResult r;
    r.outcome = TransactionResult::Outcome::Done;
    const bool alreadyFilled = useCache && m_groups.count() > 0;
    if (!alreadyFilled) {
        m_groups.clear();
        sh.S.FirstGroupWithMessages = -1;
        if (!sh.S.QuietMode)
            sh.S.ServerFileTag = NewsSession::ServerFileTag(sh.opt.NNTPServer);
        if (!useCache || !loadCachedList())
            r = fetchGroupList();
        showLoadResult(r);
    }
    endLoad(r);
    return r;
}

void GroupList::beginLoad()
{
    sh.setBusy(true);
    sh.setViewEnabled(nd::View::Groups, false);
    // what callers of the list read after it; a fetch sets it again through the session
    sh.S.TransportError = 0;
    m_grid.ResizeGrid();
    m_msgBuffer.clear();
    nd::yieldOnce();
    if (!sh.S.QuietMode) {
        sh.SetMenuState(nd::Cmd::RefreshGroups, false);
        for (nd::Cmd c : nd::cmds::MessageWork)
            sh.SetMenuState(c, false);
        for (nd::Scope s : {nd::Scope::CurrentGroup, nd::Scope::SelectedMessages, nd::Scope::Favorites})
            sh.MenuOnOff(s, false);
    }
}

// The saved list of the server, when there is one and the user wants it; true when loaded.
bool GroupList::loadCachedList()
{
    if (!QFile::exists(cacheFile()))
        return false;
    bool yes = sh.opt.AutoLoadGroups == 1;
    if (!yes && !sh.S.QuietMode)
        yes = sh.prompter().message(QStringLiteral("Load Saved Group List?"), Prompter::Question, Prompter::YesNo,
                                    QStringLiteral("Newsdredge!")) == Prompter::AnswerYes;
    if (!yes)
        return false;
    sh.setStatus(nd::PanelState, QStringLiteral("Loading Groups from Disk"));
    m_groups.load(cacheFile());
    findFirstGroupWithMessages();
    if (sh.opt.BinariesOnly)
        RemoveNonBinaryGroups();
    return true;
}

// LIST from the server, with the count of groups received shown while it arrives; the list is
// filled and saved when it came whole.
TransactionResult GroupList::fetchGroupList()
{
    sh.S.LastFailureReason = QStringLiteral("Error Reading Groups");
    sh.setStatus(nd::PanelState, QStringLiteral("Waiting for Group List"));
    sh.SetMenuState(nd::Cmd::Stop, true);
    QElapsedTimer shown;
    shown.start();
    const TransactionResult r = m_session.runTransaction([](NewsTransport *t) { t->RequestGroupList(); }, [&] {
        if (shown.elapsed() > 100) {
            shown.restart();
            if (NewsTransport *t = m_session.transport())
                sh.setStatus(nd::PanelDetail, QString::number(t->GroupList().Count()));
        }
    });
    // a Stop pressed before the request went out leaves it running
    if (r.stopped() && m_session.transport())
        m_session.transport()->AbortTransaction();
    sh.SetMenuState(nd::Cmd::Stop, false);
    if (r.ok()) {
        FillGroupList(m_session.transport()->GroupList());
        SaveGroupList();
        if (sh.opt.BinariesOnly)
            RemoveNonBinaryGroups();
    }
    return r;
}

void GroupList::showLoadResult(const TransactionResult &r)
{
    if (r.outcome != TransactionResult::Outcome::Failed) {
        emit groupListLoaded();
        sh.setStatus(nd::PanelState, QStringLiteral("Done Retrieving Group List"));
        sh.setStatus(nd::PanelDetail, QString());
    } else {
        sh.setStatus(nd::PanelDetail, QStringLiteral("Error Retrieving Group List"));
    }
}

void GroupList::endLoad(const TransactionResult &r)
{
    if (!sh.S.QuietMode) {
        sh.setViewEnabled(nd::View::Groups, true);
        sh.setStatus(nd::PanelState, QStringLiteral("Double-click Group to List Messages"));
        sh.MenuOnOff(nd::Scope::SelectedGroups, true);
        sh.SetMenuState(nd::Cmd::Connect, true);
        sh.SetMenuState(nd::Cmd::RefreshGroups, true);
        sh.SetMenuState(nd::Cmd::Groups, true);
    }
    sh.setProgress(0);
    m_msgBuffer.clear();
    sh.UpdateCaption(nd::Caption::Groups);
    if (r.outcome == TransactionResult::Outcome::Failed && m_session.transport() && m_session.transport()->LimitExceeded())
        m_session.NNTP_Disconnect();
    sh.setBusy(false);
}

void GroupList::findFirstGroupWithMessages()
{
    sh.S.FirstGroupWithMessages = -1;
    for (int i = 0; i < m_groups.count(); ++i)
        if (ItemList::markerDigit(m_groups.text(i)) == QLatin1Char('1')) {
            sh.S.FirstGroupWithMessages = i;
            break;
        }
}

void GroupList::FillGroupList(const NewsTransportGroupList &groups)
{
    sh.setStatus(nd::PanelDetail, QStringLiteral("%1 Groups").arg(groups.Count()));
    sh.setStatus(nd::PanelState, QStringLiteral("Reading Groups"));
    nd::yieldOnce();
    QStringList items;
    items.reserve(groups.Count());
    QElapsedTimer slice;
    slice.start();
    for (int i = 0; i < groups.Count(); ++i) {
        const NewsTransportGroup &g = groups.Item(i);
        if (sh.opt.BinariesOnly != 0 && !g.Name.contains(QLatin1String(".binaries")))
            continue;
        if (g.First < 1 || g.Last < 1)
            continue;
        items << groupItem(g.Name, g.First, g.Last);
        if (sh.S.FirstGroupWithMessages < 0 && ItemList::hasMarker(items.last()))
            sh.S.FirstGroupWithMessages = m_groups.count() + int(items.size()) - 1;
        if (slice.elapsed() > 20) {   // keep the window alive on very long lists
            m_groups.addMany(items);
            items.clear();
            nd::yieldOnce();
            slice.restart();
        }
    }
    m_groups.addMany(items);
}

void GroupList::SaveGroupList()
{
    sh.setStatus(nd::PanelState, QStringLiteral("Saving Groups"));
    nd::yieldOnce();
    if (m_groups.count() > 0)
        m_groups.save(cacheFile());
    sh.setStatus(nd::PanelState, QString());
}

void GroupList::RemoveNonBinaryGroups()
{
    sh.setStatus(nd::PanelState, QStringLiteral("Removing Non Binary Groups"));
    QStringList keep;
    for (const QString &t : m_groups.texts())
        if (t.contains(QLatin1String(".binar")))
            keep << t;
    m_groups.clear();
    m_groups.addMany(keep);
    findFirstGroupWithMessages();
}

void GroupList::updateGroupMarkerNFavs(const QString &groupIn, qint64 count, bool failed)
{
    const QString group = groupIn.trimmed();
    if (m_favorites)
        m_favorites->updateFavoriteMarker(group, count, failed);
    const int i = m_groups.findGroup(group);
    if (i < 0)
        return;
    if (failed)
        m_groups.setText(i, ItemList::marked(QLatin1Char('2'), group));
    else if (count < 1)
        m_groups.setText(i, group + QStringLiteral(" (0)"));
    else
        m_groups.setText(i, ItemList::marked(QLatin1Char('1'), group + QStringLiteral(" (%1)").arg(count)));
}
