#pragma once
#include <QObject>

class Downloader;
class Favorites;
class GridController;
class GroupList;
class Harvester;
class ItemList;
class MessageGrid;
class MessageList;
class NewsSession;
class Poster;
class QItemSelectionModel;
class SavedFiles;
class ServerChecker;
class ServerList;
class Shell;
class Viewer;

// The program without its windows: the lists and the message grid (models the windows show),
// and the areas that work on them. The main window makes one over its shell; batch runs make
// one over a BatchShell.
class Core : public QObject {
    Q_OBJECT
public:
    explicit Core(Shell &shell, QObject *parent = nullptr);
    ~Core() override;

    Shell &shell() { return m_shell; }

    // The lists, by their classic names.
    ItemList *const lstGroups;
    ItemList *const lstFavorites;
    ItemList *const lstFiles;
    ItemList *const lstHTTP;
    ItemList *const lstMsgBuffer;   // hidden helper list
    // The message grid and its selection (shared with the grid's view).
    MessageGrid *const grid;
    QItemSelectionModel *const gridSelection;

    // Makes the areas, each over the shell and what it works with, and joins them where one
    // area's result is another's input. The areas wire their commands themselves.
    void createAreas();
    // Deletes them, the last made first (they refer to each other and to the lists).
    void destroyAreas();

    // The areas (null before createAreas).
    NewsSession *session = nullptr;
    ServerList *servers = nullptr;
    GroupList *groups = nullptr;
    MessageList *messages = nullptr;
    Downloader *downloader = nullptr;
    GridController *gridControl = nullptr;
    Favorites *favorites = nullptr;
    Poster *poster = nullptr;
    Harvester *harvester = nullptr;
    SavedFiles *savedFiles = nullptr;
    Viewer *viewer = nullptr;
    ServerChecker *serverChecker = nullptr;

private:
    Shell &m_shell;
};
