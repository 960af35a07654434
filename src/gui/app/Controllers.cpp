#include "gui/app/frmMain.h"
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

// The core makes the areas; the window adds what shows them: the views' wiring, the windows
// the areas ask for, and the look of the lists. Keep one line per area.
void frmMain::createControllers()
{
    m_core->createAreas();
    session = m_core->session;
    servers = m_core->servers;
    groups = m_core->groups;
    messages = m_core->messages;
    downloader = m_core->downloader;
    gridControl = m_core->gridControl;
    favorites = m_core->favorites;
    poster = m_core->poster;
    harvester = m_core->harvester;
    savedFiles = m_core->savedFiles;
    viewer = m_core->viewer;
    serverChecker = m_core->serverChecker;

    nd::gui::installListLook();
    new SessionViews(*this, *session);
    frmSetup::wireCommand(shell(), *servers, session, this, &setup);
    new GroupViews(lstGroupsView, *groups);
    new GridView(*this, *gridControl);
    new FavoriteViews(lstFavoritesView, lstGroupsView, *lstGroups, *favorites);
    postWindows = new PostWindows(shell(), *poster, lblGrp, this);
    new AddressViews(*harvester, lstHTTPView, frameHTTP, harvester);
    new ViewerView(*this, *viewer, new SavedFilesView(*this, *savedFiles));
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
    m_core->destroyAreas();
}
