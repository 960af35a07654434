#pragma once
#include <QObject>
#include <QStringList>

class frmMain;
class NewsTransportGroupList;

// The group list of the connected server, its cache file, and the binaries filter.
class GroupList : public QObject {
    Q_OBJECT
public:
    explicit GroupList(frmMain &m);

    void LoadGroupList(bool useCache);
    void FillGroupList(const NewsTransportGroupList &groups);
    void SaveGroupList();
    void RemoveNonBinaryGroups();
    void updateGroupMarkerNFavs(const QString &group, qint64 count);
    static QString CleanNewsGroup(const QString &item);
    QString cacheFile() const;

    // Item texts of a group with its count (first and last article numbers).
    static QString groupItem(const QString &name, qint64 first, qint64 last);
    // Double-click / Enter on the group list.
    void openSelectedGroup();

signals:
    // A group list was fetched or loaded: the server list marks the server (its group count).
    void groupListLoaded();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    frmMain &m;
};
