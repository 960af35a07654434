#include "app/Core.h"

#include "app/Shell.h"
#include "download/Downloader.h"
#include "download/SavedFiles.h"
#include "groups/Favorites.h"
#include "groups/GroupList.h"
#include "harvest/Harvester.h"
#include "messages/GridController.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "post/Poster.h"
#include "servers/ServerChecker.h"
#include "servers/ServerList.h"
#include "ui/ItemList.h"
#include "viewer/Viewer.h"

#include <QItemSelectionModel>

Core::Core(Shell &shell, QObject *parent)
    : QObject(parent),
      lstGroups(new ItemList(this)),
      lstFavorites(new ItemList(this)),
      lstFiles(new ItemList(this)),
      lstHTTP(new ItemList(this)),
      lstMsgBuffer(new ItemList(this)),
      grid(new MessageGrid(this)),
      gridSelection(new QItemSelectionModel(grid, this)),
      m_shell(shell)
{
}

Core::~Core()
{
    destroyAreas();
}

void Core::createAreas()
{
    Shell &sh = m_shell;
    session = new NewsSession(sh, *lstGroups, *lstMsgBuffer, *grid, this);
    servers = new ServerList(sh, session, this);
    groups = new GroupList(sh, *session, *lstGroups, *lstMsgBuffer, *grid, this);
    messages = new MessageList(sh, *session, *grid, *gridSelection, this);
    downloader = new Downloader(sh, *session, *grid, *gridSelection, this);
    gridControl = new GridController(sh, *grid, *gridSelection, *messages, *downloader, this);
    favorites = new Favorites(sh, *session, *lstFavorites, *grid, messages, downloader, this);
    groups->setFavorites(favorites);
    poster = new Poster(sh, *session, *lstGroups, *lstFavorites, this);
    harvester = new Harvester(sh, {*lstHTTP, *lstGroups, *lstFavorites, *grid, *gridSelection, *servers, *session,
                                   *groups, *messages, *downloader}, this);
    savedFiles = new SavedFiles(sh, *lstFiles, this);
    viewer = new Viewer(sh, *session, *grid, *gridSelection, *downloader, this);
    serverChecker = new ServerChecker(sh, {*lstGroups, *lstFavorites, *lstHTTP, *lstMsgBuffer, *grid, *servers,
                                           *session, *groups, *messages, *favorites}, this);

    connect(groups, &GroupList::listMessagesWanted, messages, [this] { messages->ListMessages(true); });
    connect(messages, &MessageList::groupListed, groups,
            [this](const QString &group, int lastRow) { groups->updateGroupMarkerNFavs(group, lastRow, false); });
    connect(downloader, &Downloader::fileSaved, savedFiles, [this](const QString &path) {
        savedFiles->AddSavedFile(path);
        savedFiles->PreviewFile(path);
    });
    connect(downloader, &Downloader::textToScan, harvester, &Harvester::FindWebAddresses);
}

void Core::destroyAreas()
{
    QObject *const areas[] = {serverChecker, viewer, savedFiles, harvester, poster, favorites,
                              gridControl, downloader, messages, groups, servers, session};
    for (QObject *a : areas)
        delete a;
    serverChecker = nullptr;
    viewer = nullptr;
    savedFiles = nullptr;
    harvester = nullptr;
    poster = nullptr;
    favorites = nullptr;
    gridControl = nullptr;
    downloader = nullptr;
    messages = nullptr;
    groups = nullptr;
    servers = nullptr;
    session = nullptr;
}
