#pragma once
#include <QString>
#include <QObject>
#include <QStringList>

class frmMain;
class ItemList;
class QListView;

// The favourites list: groups the user returns to, each with the server it came from, kept in a
// favourites file (*.fav). Opening a favourite switches servers when needed and lists it; a
// favourites download lists and downloads every selected favourite, server by server.
class Favorites : public QObject {
    Q_OBJECT
public:
    explicit Favorites(frmMain &m);

    // File commands.
    void SaveFavoritesAs(bool clear);
    void LoadFavorites();
    // Loads a list from a file when the file exists and the path is not a directory; iconIndex
    // -1 leaves the items without an icon.
    static void LoadListFromFile(frmMain &m, ItemList *list, const QString &path, int iconIndex);
    void UpdateFavoritesName();

    // List events.
    bool OpenFavorite(bool warn);     // the current item; false when nothing was opened
    void DeleteSelected();
    void SelectAll();
    // A group item of the group list dropped on the favourites; true when a favourite was added.
    bool DropGroup(const QString &groupItem);

    // After a listing: rewrites the favourite of `group` on the current server.
    void updateFavoriteMarker(const QString &group, qint64 count);

    void DownloadFromFavorites();

    // The icon key every favourite carries (list icon 9 of the main window).
    static QString listIcon(int iconIndex);
    static constexpr int FavoriteIcon = 9;

    // Writes the list to the current favourites file unless another run borrows the list.
    bool saveToCurrentFile();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool switchServerAndConnect(const QString &server);
    bool listGroup();       // lists CurrentGroup on the connected server
    void downloadAll();     // downloads every listed row
    void setIcons(ItemList *list, int iconIndex);

    frmMain &m;
    bool m_downloading = false;
};
