#pragma once
#include "app/CommandHold.h"
#include "app/Commands.h"

#include <QFile>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

class Downloader;
class GroupList;
class ItemList;
class MessageGrid;
class MessageList;
class NewsSession;
class QItemSelectionModel;
class ServerList;
class Shell;
class StopLatch;

// The Advanced menu's address harvesting: Web/FTP addresses from article texts, e-mail addresses
// from the sender column and news-server names from the Path column, over the current group,
// the selected groups, favourites, messages or servers. Found addresses are listed in lstHTTP;
// Web/FTP addresses also go to "UsenetHTTP.htm", e-mail and server addresses to the output file
// the user chose (one per line), and server names to the server list as unchecked servers.
class Harvester : public QObject {
    Q_OBJECT
public:
    enum HarvestKind { WebFtp = 0, Email = 1, NewsServers = 2 };
    enum HarvestScope { CurrentGroup = 0, SelectedGroups = 1, SelectedFavorites = 2, SelectedMessages = 3,
                        SelectedServers = 4 };

    // What a run works on and with.
    struct Collaborators {
        ItemList &lstHTTP;        // the addresses found
        ItemList &lstGroups;
        ItemList &lstFavorites;
        MessageGrid &grid;
        QItemSelectionModel &gridSelection;
        ServerList &servers;
        NewsSession &session;
        GroupList &groups;
        MessageList &messages;
        Downloader &downloader;
    };
    Harvester(Shell &sh, const Collaborators &with, QObject *parent = nullptr);

    static QString runCaption(HarvestKind kind);
    // The commands of a scope, switched off while a run over it goes.
    static nd::Scope commandScope(HarvestScope scope);
    // "UsenetHTTP.htm" in the application directory.
    static QString linkFile();

    // One run of one kind over one scope.
    void DoAdvanced(HarvestScope scope, HarvestKind kind);
    // All data rows (allRows) or the selected block of the grid.
    // The rows of the grid (all, or the selected ones); returns the error of an article fetch
    // that ended the scan (0 when none).
    int ScanMessageRows(bool allRows, HarvestScope scope, HarvestKind kind);

    // Takes the Web/FTP addresses out of an article's text (called for every fetched article
    // while ScanMode is set, and when a text names an address of a kind that is kept).
    void FindWebAddresses(const QString &text);
    // Reduces one From value to an address and lists it when it passes the filters.
    void CleanEmailAddress(const QString &text);
    // Lists the server names of one Path value and adds new ones to the server list.
    void FindNewsServers(const QString &path);

    // The file dialog for the output file; true when a name was chosen (in OutputFileName).
    bool AskOutputFile();
    // Output file, then the search text of an e-mail run; false when no file was chosen.
    bool AskEmailSearch();

    // Opens the selected address of the list (double-click or Enter on it while it lists
    // Web/FTP addresses).
    void OpenSelectedAddress();

    bool running() const { return m_running; }

    QString EmailSearchText;

private:
    void command(HarvestScope scope, HarvestKind kind);
    bool stopped() const;
    void holdLists(bool hold);
    bool beginRun(HarvestKind kind);      // false when the run asks and gets no answer
    void endRun(HarvestScope scope);
    QStringList selectedItems(HarvestScope scope);
    void runItems(HarvestScope scope, HarvestKind kind, const QString &caption);
    void scanGroups(const QStringList &items, HarvestKind kind);
    void scanFavorites(const QStringList &items, HarvestKind kind);
    void scanServers(const QStringList &items, HarvestKind kind);
    void scanServerGroups(HarvestKind kind);
    bool listCurrentGroup(HarvestScope scope);   // false when the listing failed
    int scanRow(int row, HarvestKind kind);      // an article fetch's error, 0 when fine
    bool openOutputFile();
    void writeOutputLine(const QString &address);
    void closeOutputFile();
    bool keepWebAddress(const QString &address);

    Shell &sh;
    ItemList &lstHTTP;
    ItemList &lstGroups;
    ItemList &lstFavorites;
    MessageGrid &grid;
    QItemSelectionModel &gridSelection;
    ServerList &servers;
    NewsSession &session;
    GroupList &groups;
    MessageList &messages;
    Downloader &downloader;

    bool m_running = false;
    CommandHold m_heldCommands;
    StopLatch *m_latch = nullptr;
    QFile m_output;
    bool m_outputFailed = false;
    bool m_serversAdded = false;
};
