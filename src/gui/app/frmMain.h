#pragma once
#include "app/Shell.h"

#include <QHash>
#include <QMainWindow>
#include <QPointer>
#include <QSet>
#include <functional>
#include <memory>

class QAction;
class QGroupBox;
class QLabel;
class QListView;
class QMenu;
class QProgressBar;
class QSplitter;
class QSystemTrayIcon;
class QTableView;
class QTimer;
class QToolBar;
class QToolButton;
class ItemList;
class MessageGrid;
class Prompter;
// The areas of the program; each is created by createControllers() once it exists.
class NewsSession;
class ServerList;
class frmSetup;
class GroupList;
class Favorites;
class MessageList;
class GridController;
class Downloader;
class SavedFiles;
class Viewer;
class Poster;
class PostWindows;
class Harvester;
class ServerChecker;
class GuiShell;
class Core;

// The main window: lives from start to exit and owns the program-wide state, the lists, the
// message grid, the status bar and the command set.
class frmMain : public QMainWindow {
    Q_OBJECT
    // declared first: S and opt below refer into it
    std::unique_ptr<GuiShell> m_shell;
    std::unique_ptr<Core> m_core;

public:
    struct Options {
        bool skipStartupDialogs = false;   // no splash / quick help (tests)
    };
    explicit frmMain(Prompter *prompter, Options options);
    explicit frmMain(Prompter *prompter) : frmMain(prompter, Options{}) {}
    ~frmMain() override;

    // Start-up: splash, quick help on first run, title, geometry, GetSettings.
    void startUp();
    void GetSettings();
    void SaveSettings();

    // What the areas talk to: the program-wide state, options, status, commands and boxes.
    Shell &shell();
    Core &core() { return *m_core; }
    AppState &S;
    Settings &opt;
    SettingsStore &store();
    Prompter &prompter();
    void setPrompter(Prompter *p);

    // Controls other parts of the program address by name.
    ItemList *lstGroups = nullptr;
    ItemList *lstFavorites = nullptr;
    ItemList *lstFiles = nullptr;
    ItemList *lstHTTP = nullptr;
    ItemList *lstMsgBuffer = nullptr;    // hidden helper list
    QListView *lstGroupsView = nullptr;
    QListView *lstFavoritesView = nullptr;
    QListView *lstFilesView = nullptr;
    QListView *lstHTTPView = nullptr;
    QLabel *lblGrp = nullptr;
    QLabel *lblFav = nullptr;
    MessageGrid *grid = nullptr;
    QTableView *MSHResults = nullptr;
    QGroupBox *frameFiles = nullptr;
    QGroupBox *frameHTTP = nullptr;
    QLabel *Picture1 = nullptr;
    QProgressBar *progBar = nullptr;
    QToolBar *Toolbar1 = nullptr;
    QTimer *Timer1 = nullptr;
    QSystemTrayIcon *TrayIcon1 = nullptr;

    // The areas of the program (null while an area is not built).
    NewsSession *session = nullptr;
    ServerList *servers = nullptr;
    frmSetup *setup = nullptr;
    GroupList *groups = nullptr;
    Favorites *favorites = nullptr;
    MessageList *messages = nullptr;
    GridController *gridControl = nullptr;
    Downloader *downloader = nullptr;
    SavedFiles *savedFiles = nullptr;
    Viewer *viewer = nullptr;
    Poster *poster = nullptr;
    PostWindows *postWindows = nullptr;   // the post window the poster asks for
    Harvester *harvester = nullptr;
    ServerChecker *serverChecker = nullptr;

    // Status bar panels 1..3.
    void setStatus(int panel, const QString &text);
    QString status(int panel) const;

    // Commands.
    QAction *action(const QString &name) const;            // by menu item name, e.g. "menuConnect"
    QAction *toolButton(const QString &key) const;         // by toolbar key, e.g. "Connect"
    QString toolKey(QAction *button) const;
    void setToolKey(const QString &oldKey, const QString &newKey); // the Connect/Disconnect button
    // Attaches a procedure to a command. Commands without one stay disabled.
    void wireCommand(const QString &menuName, std::function<void()> handler);
    bool commandBuilt(const QString &menuName) const;
    void toolbarClick(const QString &key);                 // toolbar dispatch

    // Helpers every procedure uses.
    void UpdateCaption(nd::Caption caption);
    void SetMenuState(nd::Cmd command, bool enabled);
    void MenuOnOff(nd::Scope scope, bool enabled);
    bool IsConnectedIdle(bool warn);
    void OpenDocument(const QString &target);
    void StopOperation();
    void setBusy(bool busy);
    int serverCount() const;      // for the setup dialog's caption
    void setServerCount(int n);
    QString setupServerFrameCaption() const { return m_setupServerCaption; }


    // Tray behaviour on resize/minimise.
    void applyTrayOnStateChange();

    bool shutdownDone() const { return m_shutdownDone; }

protected:
    void closeEvent(QCloseEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    friend class GuiShell;
    void commandWired(const QString &menuName);
    void buildWidgets();
    void buildListViews();
    void buildGridView();
    void buildPanes();
    void buildStatusBar();
    void buildMenus();
    void buildToolbar();
    void detachControllers();
    void destroyControllers();   // before the shell goes: the areas talk to it until they are gone
    void createControllers();   // app/Controllers.cpp
    void onTick();
    void shutdown();
    void showAbout();
    void showQuickHelp(bool startup);
    void showSplash();
    void firstRunDialogue();

    Options m_options;
    QLabel *m_panels[3] = {nullptr, nullptr, nullptr};
    QHash<QString, QAction *> m_actions;
    QHash<QString, QAction *> m_buttons;      // key -> button action
    QHash<int, QAction *> m_buttonOf;         // command -> the toolbar button that follows it
    QString m_setupServerCaption;
    bool m_closePending = false;
    bool m_shutdownDone = false;
};
