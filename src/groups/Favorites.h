#pragma once
#include <QObject>
#include <QStringList>

class Downloader;
class ItemList;
class MessageGrid;
class MessageList;
class NewsSession;
class Shell;

// The favourites list: groups the user returns to, each with the server it came from, kept in a
// favourites file (*.fav). Opening a favourite switches servers when needed and lists it; a
// favourites download lists and downloads every selected favourite, server by server.
class Favorites : public QObject {
    Q_OBJECT
public:
    Favorites(Shell &sh, NewsSession &session, ItemList &lstFavorites, MessageGrid &grid, MessageList *messages,
              Downloader *downloader, QObject *parent = nullptr);

    ItemList &list() { return m_list; }

    // File commands.
    void SaveFavoritesAs(bool clear);
    void LoadFavorites();
    // Loads a list from a file when the file exists and the path is not a directory; iconIndex
    // -1 leaves the items without an icon.
    void LoadListFromFile(ItemList *list, const QString &path, int iconIndex);
    void UpdateFavoritesName();

    // List events.
    bool OpenFavorite(bool warn);     // the current item; false when nothing was opened
    void openCurrent();               // Enter or a double-click on the list
    bool DeleteSelected();            // false when nothing was selected
    void SelectAll();
    // A group item of the group list dropped on the favourites; true when a favourite was added.
    bool DropGroup(const QString &groupItem);
    // Whether the user may change the list now: not while a favourites download or another run
    // that borrows the list is under way.
    bool acceptsChanges() const;

    // After a listing: rewrites the favourite of `group` on the current server.
    void updateFavoriteMarker(const QString &group, qint64 count, bool failed);

    void DownloadFromFavorites();

    // The list icon every favourite carries.
    static constexpr int FavoriteIcon = 9;

    // Writes the list to the current favourites file unless another run borrows the list.
    bool saveToCurrentFile();

private:
    // The icon key of list icon index iconIndex (FavoriteIcon for every favourite), and every
    // item of list given it.
    static QString listIcon(int iconIndex);
    void setIcons(ItemList *list, int iconIndex);

    bool switchServerAndConnect(const QString &server);
    bool listGroup();       // lists CurrentGroup on the connected server
    void downloadAll();     // downloads every listed row
    void downloadSelected(ItemList &l);

    Shell &sh;
    NewsSession &m_session;
    ItemList &m_list;
    MessageGrid &m_grid;
    MessageList *m_messages;
    Downloader *m_downloader;
    bool m_downloading = false;
};
