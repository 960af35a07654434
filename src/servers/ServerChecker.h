#pragma once
#include <QObject>
#include <QString>

class Favorites;
class GroupList;
class ItemList;
class MessageGrid;
class MessageList;
class NewsSession;
class ServerList;
class Shell;
class StopLatch;

// The Advanced menu's runs over the selected servers of the server list: checking them (servers
// that fail are removed and logged in "CHECK.LOG"), writing the groups of every server to a
// text file, and looking for a group on every server (each server carrying it becomes a
// favourite). A run borrows the favourites list for the servers to visit and the address list
// for its status lines; both are given back when it ends, however it ends.
class ServerChecker : public QObject {
    Q_OBJECT
public:
    // What a run works on and with.
    struct Collaborators {
        ItemList &lstGroups;
        ItemList &lstFavorites;   // borrowed as the check list
        ItemList &lstHTTP;        // borrowed for status lines
        ItemList &lstMsgBuffer;
        MessageGrid &grid;
        ServerList &servers;
        NewsSession &session;
        GroupList &groups;
        MessageList &messages;
        Favorites &favorites;
    };
    ServerChecker(Shell &sh, const Collaborators &with, QObject *parent = nullptr);
    ~ServerChecker() override;

    // The three commands with their refusals and questions.
    void menuCheck();
    void menuGen();
    void menuScan();

    // mode "": check; "@GENLIST": group-list file (OutputFileName); otherwise the group to look for.
    void DoCheckServers(const QString &mode);
    // Removes check-list item `index` and the current server from the server list, logs it.
    void RemoveBadServer(int index);
    // Marks the current server's server-list item with the group count and posting flag.
    void updateGroupMarker();

    bool running() const { return m_running; }
    QString removalReason() const { return m_reason; }
    // The favourites file as a group search reads and extends it (hidden list).
    ItemList *lstTempF = nullptr;

    static QString checkLogFile();                           // "CHECK.LOG" in the application directory
    static QString groupCacheFile(const QString &server);    // the server's group cache

private:
    bool stopped() const;
    bool mayStart();
    bool haveSelection();
    void holdCommands();        // the busy command state of a run
    void takeOver();            // the lists and commands a run holds
    void loadCheckList();       // the selected servers become the check list
    void showProgress(int i);
    void visitServer(int &i);   // one server of the check list; advances i
    bool fetchGroups(const QString &server);   // false when the list could not be had
    void writeGroupList(const QString &server);
    void searchGroup(const QString &server);
    bool checkServer(int i, const QString &server);   // false when the server goes
    void finish();
    void saveGroupListFile();
    void giveBack();

    Shell &sh;
    ItemList &lstGroups;
    ItemList &lstFavorites;
    ItemList &lstHTTP;
    ItemList &lstMsgBuffer;
    MessageGrid &grid;
    ServerList &servers;
    NewsSession &session;
    GroupList &groups;
    MessageList &messages;
    Favorites &favorites;

    QString m_mode;
    QString m_reason;
    QString m_rememberedServer;
    bool m_running = false;
    bool m_favoritesBorrowed = false;
    StopLatch *m_stop = nullptr;
};
