#include "app/frmMain.h"
#include "app/Core.h"
#include "download/Downloader.h"
#include "download/SavedFiles.h"
#include "groups/Favorites.h"
#include "groups/GroupList.h"
#include "gui/harvest/AddressViews.h"
#include "gui/options/frmSetup.h"
#include "gui/post/PostWindows.h"
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
    session = new NewsSession(*this);
    servers = new ServerList(shell(), session, this);
    frmSetup::wireCommand(shell(), *servers, session, this, &setup);
    groups = new GroupList(*this);
    messages = new MessageList(*this);
    gridControl = new GridController(*this);
    downloader = new Downloader(*this);
    favorites = new Favorites(*this);
    poster = new Poster(shell(), *session, *lstGroups, *lstFavorites, this);
    postWindows = new PostWindows(shell(), *poster, lblGrp, this);
    harvester = new Harvester(shell(), {*lstHTTP, *lstGroups, *lstFavorites, *grid, *core().gridSelection, *servers,
                                        *session, *groups, *messages, *downloader}, this);
    new AddressViews(*harvester, lstHTTPView, frameHTTP, harvester);
    savedFiles = new SavedFiles(*this);
    viewer = new Viewer(*this);
    serverChecker = new ServerChecker(shell(), {*lstGroups, *lstFavorites, *lstHTTP, *lstMsgBuffer, *grid, *servers,
                                                *session, *groups, *messages, *favorites}, this);
    connect(serverChecker, &ServerChecker::favoritesReturned, this, [this] {
        Favorites::LoadListFromFile(*this, lstFavorites, opt.FavoritesFile, Favorites::FavoriteIcon);
    });
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
