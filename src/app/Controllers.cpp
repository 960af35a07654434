#include "app/frmMain.h"
#include "app/Core.h"
#include "download/Downloader.h"
#include "download/SavedFiles.h"
#include "groups/Favorites.h"
#include "groups/GroupList.h"
#include "gui/download/SavedFilesView.h"
#include "gui/groups/FavoriteViews.h"
#include "gui/groups/GroupViews.h"
#include "gui/harvest/AddressViews.h"
#include "gui/messages/GridView.h"
#include "gui/news/SessionViews.h"
#include "gui/options/frmSetup.h"
#include "gui/post/PostWindows.h"
#include "gui/ui/ListLook.h"
#include "gui/viewer/ViewerView.h"
#include "harvest/Harvester.h"
#include "messages/GridController.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "post/Poster.h"
#include "servers/ServerChecker.h"
#include "servers/ServerList.h"
#include "viewer/Viewer.h"

#include <QGroupBox>
#include <QListView>

// Each area of the program attaches itself here: it creates its object (parented to the main
// window), wires its commands with wireCommand() and connects to the lists it serves.
// Keep one line per area.
void frmMain::createControllers()
{
    session = new NewsSession(shell(), *lstGroups, *lstMsgBuffer, *grid, this);
    new SessionViews(*this, *session);
    servers = new ServerList(shell(), session, this);
    frmSetup::wireCommand(shell(), *servers, session, this, &setup);
    groups = new GroupList(shell(), *session, *lstGroups, *lstMsgBuffer, *grid, this);
    new GroupViews(lstGroupsView, *groups);
    nd::gui::installListLook();
    messages = new MessageList(shell(), *session, *m_core->grid, *m_core->gridSelection, this);
    downloader = new Downloader(shell(), *session, *m_core->grid, *m_core->gridSelection, this);
    gridControl = new GridController(shell(), *m_core->grid, *m_core->gridSelection, *messages, *downloader, this);
    new GridView(*this, *gridControl);
    favorites = new Favorites(shell(), *session, *lstFavorites, *grid, messages, downloader, this);
    new FavoriteViews(lstFavoritesView, lstGroupsView, *lstGroups, *favorites);
    groups->setFavorites(favorites);
    connect(groups, &GroupList::listMessagesWanted, messages, [this] { messages->ListMessages(true); });
    poster = new Poster(shell(), *session, *lstGroups, *lstFavorites, this);
    postWindows = new PostWindows(shell(), *poster, lblGrp, this);
    harvester = new Harvester(shell(), {*lstHTTP, *lstGroups, *lstFavorites, *grid, *core().gridSelection, *servers,
                                        *session, *groups, *messages, *downloader}, this);
    new AddressViews(*harvester, lstHTTPView, frameHTTP, harvester);
    savedFiles = new SavedFiles(shell(), *m_core->lstFiles, this);
    connect(downloader, &Downloader::fileSaved, savedFiles, [this](const QString &path) {
        savedFiles->AddSavedFile(path);
        savedFiles->PreviewFile(path);
    });
    connect(downloader, &Downloader::textToScan, harvester, &Harvester::FindWebAddresses);
    connect(messages, &MessageList::groupListed, groups,
            [this](const QString &group, int lastRow) { groups->updateGroupMarkerNFavs(group, lastRow, false); });
    viewer = new Viewer(shell(), *session, *m_core->grid, *m_core->gridSelection, *downloader, this);
    new ViewerView(*this, *viewer, new SavedFilesView(*this, *savedFiles));
    serverChecker = new ServerChecker(shell(), {*lstGroups, *lstFavorites, *lstHTTP, *lstMsgBuffer, *grid, *servers,
                                                *session, *groups, *messages, *favorites}, this);
}

// The areas watch this window's widgets through event filters that read the window; the widgets
// still get events while they are destroyed, after the window has stopped being one.
void frmMain::detachControllers()
{
    const QList<QObject *> areas = {session, servers, groups, messages, gridControl, downloader, favorites,
                                    poster, harvester, savedFiles, viewer, serverChecker,
                                    findChild<GridView *>(), findChild<SavedFilesView *>(), findChild<ViewerView *>()};
    const QList<QWidget *> widgets = findChildren<QWidget *>();
    for (QWidget *w : widgets)
        for (QObject *a : areas)
            if (a)
                w->removeEventFilter(a);
}

void frmMain::destroyControllers()
{
    // the views (and the windows they made) go before the areas they show
    delete findChild<ViewerView *>();
    delete findChild<SavedFilesView *>();
    delete findChild<GridView *>();
    const QList<QObject *> areas = {serverChecker, viewer, savedFiles, harvester, poster, favorites, downloader,
                                    gridControl, messages, groups, servers, session};
    for (QObject *a : areas)
        delete a;
}
