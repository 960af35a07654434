#pragma once
#include "news/Session.h"

#include <QObject>
#include <QStringList>

class Favorites;
class ItemList;
class MessageGrid;
class NewsTransportGroupList;
class Shell;

// The group list of the connected server, its cache file, and the binaries filter.
class GroupList : public QObject {
    Q_OBJECT
public:
    // lstMsgBuffer and grid are emptied when a list is loaded.
    GroupList(Shell &sh, NewsSession &session, ItemList &lstGroups, ItemList &lstMsgBuffer, MessageGrid &grid,
              QObject *parent = nullptr);
    // The favourites whose markers follow the groups' (made after the group list).
    void setFavorites(Favorites *favorites) { m_favorites = favorites; }

    // Fills the list from the cache file or from the server. Done when the list is there (also
    // when it already was), Failed when the server's list could not be had, Stopped on Stop.
    TransactionResult LoadGroupList(bool useCache);
    void FillGroupList(const NewsTransportGroupList &groups);
    void SaveGroupList();
    void RemoveNonBinaryGroups();
    // After a listing of `group`: its item (and its favourite) show the count of messages, or
    // that the listing failed.
    void updateGroupMarkerNFavs(const QString &group, qint64 count, bool failed);
    static QString CleanNewsGroup(const QString &item);
    QString cacheFile() const;

    // Item texts of a group with its count (first and last article numbers).
    static QString groupItem(const QString &name, qint64 first, qint64 last);
    // Double-click / Enter on the group list: the current group becomes CurrentGroup and is listed.
    void openSelectedGroup();

signals:
    // A group list was fetched or loaded: the server list marks the server (its group count).
    void groupListLoaded();
    // The user opened a group: the messages of CurrentGroup are to be listed.
    void listMessagesWanted();

private:
    void beginLoad();
    bool loadCachedList();
    TransactionResult fetchGroupList();
    void showLoadResult(const TransactionResult &r);
    void endLoad(const TransactionResult &r);
    void findFirstGroupWithMessages();

    Shell &sh;
    NewsSession &m_session;
    ItemList &m_groups;
    ItemList &m_msgBuffer;
    MessageGrid &m_grid;
    Favorites *m_favorites = nullptr;
};
