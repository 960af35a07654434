#pragma once
#include <QFile>
#include <QList>
#include <QObject>
#include <QString>

class frmMain;
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

    explicit Harvester(frmMain &m);

    static QString runCaption(HarvestKind kind);
    static QString scopeCode(HarvestScope scope);
    // "UsenetHTTP.htm" in the application directory.
    static QString linkFile();

    // One run of one kind over one scope.
    void DoAdvanced(HarvestScope scope, HarvestKind kind);
    // All data rows (allRows) or the selected block of the grid.
    void ScanMessageRows(bool allRows, HarvestScope scope, HarvestKind kind);

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

    // Double-click or Enter on the address list: opens the selected Web/FTP address.
    void OpenSelectedAddress();

    bool running() const { return m_running; }

    QString EmailSearchText;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void command(HarvestScope scope, HarvestKind kind);
    bool stopped() const;
    void holdLists(bool hold);
    void runItems(HarvestScope scope, HarvestKind kind, const QString &caption);
    void listCurrentGroup(HarvestScope scope);
    bool openOutputFile();
    void writeOutputLine(const QString &address);
    void closeOutputFile();

    frmMain &m;
    bool m_running = false;
    bool m_commandsHeld = false;
    QList<bool> m_heldStates;    // the held commands' states when the run started
    StopLatch *m_latch = nullptr;
    QFile m_output;
    bool m_outputFailed = false;
    bool m_serversAdded = false;
};
