#pragma once
#include <QDialog>
#include <QList>
#include <QPair>
#include <QString>

class NewsSession;
class ServerList;
class Shell;
class QCheckBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListView;
class QListWidget;
class QListWidgetItem;
class QPushButton;
class QTabWidget;
class QToolBar;

// The setup dialog: the server list with the credentials of each server ("Server Settings")
// and the options, the download directory and the proxy ("Additional Settings/Proxy").
// Created on first use and kept; every opening loads it afresh from the program's values.
// It works over the server list and the options; a double-click connects through the session.
class frmSetup : public QDialog {
    Q_OBJECT
public:
    frmSetup(Shell &sh, ServerList &servers, NewsSession *session, QWidget *parent = nullptr);

    // Attaches the Setup command: the dialog is made on first use and kept in *slot.
    static void wireCommand(Shell &sh, ServerList &servers, NewsSession *session, QWidget *parent,
                            frmSetup **slot);

    // The Setup command: Setup off, the dialog modally, Setup on again.
    void runModal();
    // Loads and shows the dialog without waiting for it (tests drive it, then OK or Cancel).
    void openSetup();

    void Load();
    void cmdOK_Click();
    void cmdCancel_Click();

    // Download directory.
    static QString addPath(const QString &path);
    void setDefaultDir();
    void dirChange(const QString &path);
    void driveChange(const QString &path);   // a directory picked in the chooser
    void chooseDirectory();                   // the chooser itself
    void cmdDir_Click();                      // Create Directory
    void deleteDirectory();                   // Delete key in the directory list
    QString dirPath() const { return m_dirPath; }

    // Corrections made when a box is left.
    void txtMinGroups_Validate();
    void txtTimeout_Validate();
    // Input filters of the number boxes (true: the character is taken).
    static bool acceptsNewChar(QChar c);
    static bool acceptsNumberChar(QChar c);
    // Leading decimal digits of a text ("12x" -> 12, "" -> 0).
    static qint64 leadingNumber(const QString &text);

    // Server list events.
    void lstServs_Click(int index);
    void lstServs_DblClick(int index);
    void credentialsLeft();

    // Controls, addressed by name.
    QTabWidget *tabs = nullptr;
    QGroupBox *frameServers = nullptr;
    QToolBar *serverToolbar = nullptr;
    QListView *lstServs = nullptr;
    QLineEdit *txtUserID = nullptr;
    QLineEdit *txtPassword = nullptr;
    QPushButton *cmdUsenet = nullptr;
    QCheckBox *chkTray = nullptr;
    QCheckBox *chkWebSave = nullptr;
    QCheckBox *chkFTPSave = nullptr;
    QCheckBox *chkHTTP = nullptr;
    QCheckBox *chkFTP = nullptr;
    QCheckBox *chkBinary = nullptr;
    QCheckBox *chkAutoLoad = nullptr;
    QCheckBox *chkFileDelete = nullptr;
    QCheckBox *chkShow = nullptr;
    QLineEdit *txtNew = nullptr;
    QLineEdit *txtTimeout = nullptr;
    QLineEdit *txtMinGroups = nullptr;
    QGroupBox *frameSaveFiles = nullptr;
    QLabel *lblDir = nullptr;
    QListWidget *dirDialog = nullptr;
    QPushButton *driveDialog = nullptr;
    QPushButton *cmdDir = nullptr;
    QLineEdit *txtProxyAddress = nullptr;
    QLineEdit *txtProxyPort = nullptr;
    QPushButton *cmdOK = nullptr;
    QPushButton *cmdCancel = nullptr;

    QAction *serverButton(const QString &key) const;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *buildServerTab();
    QWidget *buildOptionsTab();
    QGroupBox *buildOptionsBox(QWidget *page);
    void buildSaveFilesBox(QWidget *page);
    QGroupBox *buildProxyBox(QWidget *page);
    void fillDirList();
    void noServerSelected();
    bool hasCurrentServer() const;
    bool isDisconnected() const;

    Shell &sh;
    ServerList &servers;
    NewsSession *session;
    QString m_dirPath;
    bool m_connectAfterClose = false;
    bool m_warning = false;
    // What Cancel gives back: the server list with its credential strings, the current server
    // and its credentials as they were when the dialog opened.
    void restoreServers();
    QList<QPair<QString, QString>> m_serversAtOpen;
    QString m_serverAtOpen, m_userAtOpen, m_passwordAtOpen;
};
