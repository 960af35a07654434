#include "app/frmMain.h"
#include "download/Downloader.h"
#include "download/SavedFiles.h"
#include "groups/Favorites.h"
#include "groups/GroupList.h"
#include "gui/groups/FavoriteViews.h"
#include "gui/groups/GroupViews.h"
#include "gui/news/SessionViews.h"
#include "harvest/Harvester.h"
#include "messages/GridController.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "post/Poster.h"
#include "servers/ServerChecker.h"
#include "servers/ServerList.h"
#include "viewer/Viewer.h"

// Each area of the program attaches itself here: it creates its object (parented to the main
// window), wires its commands with wireCommand() and connects to the lists it serves.
// Keep one line per area.
void frmMain::createControllers()
{
    session = new NewsSession(shell(), *lstGroups, *lstMsgBuffer, *grid, this);
    new SessionViews(*this, *session);
    servers = new ServerList(*this);
    groups = new GroupList(shell(), *session, *lstGroups, *lstMsgBuffer, *grid, this);
    new GroupViews(lstGroupsView, *groups);
    messages = new MessageList(*this);
    gridControl = new GridController(*this);
    downloader = new Downloader(*this);
    favorites = new Favorites(shell(), *session, *lstFavorites, *grid, messages, downloader, this);
    new FavoriteViews(lstFavoritesView, lstGroupsView, *lstGroups, *favorites);
    groups->setFavorites(favorites);
    connect(groups, &GroupList::listMessagesWanted, messages, [this] { messages->ListMessages(true); });
    poster = new Poster(*this);
    harvester = new Harvester(*this);
    savedFiles = new SavedFiles(*this);
    viewer = new Viewer(*this);
    serverChecker = new ServerChecker(*this);
}

// The areas watch this window's widgets through event filters that read the window; the widgets
// still get events while they are destroyed, after the window has stopped being one.
void frmMain::detachControllers()
{
    const QList<QObject *> areas = {session, servers, groups, messages, gridControl, downloader, favorites,
                                    poster, harvester, savedFiles, viewer, serverChecker};
    const QList<QWidget *> widgets = findChildren<QWidget *>();
    for (QWidget *w : widgets)
        for (QObject *a : areas)
            if (a)
                w->removeEventFilter(a);
}

void frmMain::destroyControllers()
{
    const QList<QObject *> areas = {serverChecker, viewer, savedFiles, harvester, poster, favorites, downloader,
                                    gridControl, messages, groups, servers, session};
    for (QObject *a : areas)
        delete a;
}
