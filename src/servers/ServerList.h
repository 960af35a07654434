#pragma once
#include <QObject>
#include <QPair>
#include <QSet>
#include <QString>
#include <QStringList>

class ItemList;
class NewsSession;
class QNetworkAccessManager;
class Shell;

// The list of news servers the program knows ("NNTP_NET.INI"): each item is a 13-character
// status prefix and the server name, with the credential string "user|||password" beside it.
// Works without the setup dialog: the connect code asks it for credentials, server checking
// reads and rewrites it. The setup dialog shows it and follows its signals.
class ServerList : public QObject {
    Q_OBJECT
public:
    static const QString Unchecked;          // "????? ???    "
    static constexpr int PrefixLength = 13;
    static const QString Separator;          // "|||"

    // Gives the session the credentials of its servers (session may be null).
    ServerList(Shell &sh, NewsSession *session, QObject *parent = nullptr);
    ~ServerList() override;

    ItemList *lstServs = nullptr;

    // "NNTP_NET.INI" in the application directory.
    static QString listFile();
    // Replaces the items with the file's (a missing file leaves the list empty).
    bool load();
    // Writes the file readable by its owner only.
    bool save();
    // Loads the file once if nothing was loaded yet (connect before the dialog was ever shown).
    void ensureLoaded();
    // Descending order of item text; credential strings travel with their items.
    void sortDescending();
    // Dialog load: read the file, sort, save back.
    void loadSortAndSave();

    // Index of the first item whose server name (text after the last space) is exactly name.
    int findServer(const QString &name) const;
    // The credential string of a server, "" when unknown.
    QString serverData(const QString &server);
    // User ID before the first "|||", password after it.
    QPair<QString, QString> credentialsFor(const QString &server);
    static QPair<QString, QString> splitCredentials(const QString &data);

    // Makes the item's server the current one (selection and the NNTPServer value).
    void makeCurrent(int index);
    // Stores typed credentials with an item and makes them the current ones.
    void setCredentials(int index, const QString &user, const QString &password);

    // An address the list accepts: "[nntp[s]://]host[:port]" without blanks.
    static bool isValidAddress(const QString &address);
    // Import text: entries separated by line ends or commas -> the server names to add.
    static QString importName(const QString &entry);
    static QStringList splitEntries(const QByteArray &data);
    // Open-server list entry ("prefix name*") -> the item text, "" when unusable.
    static QString openServerItem(const QString &entry);

    // Commands of the server frame.
    void menuNew();
    void menuFind();
    void menuDelete();
    void menuImport();
    void menuExport();
    void downloadOpenServers();
    // Adds the names of an import file; returns how many were added.
    int importFile(const QString &path);
    // Adds the entries of a downloaded open-server list; returns how many were added.
    int importOpenServerFile(const QString &path);

    // The address of the published open-server list (NEWSDREDGE_SERVERLIST_URL or setter
    // override the built-in one).
    QString openServerListUrl() const;
    void setOpenServerListUrl(const QString &url) { m_url = url; }

    // Refreshes "NNTP Servers (n)".
    void refreshCaption();
    // True while the list itself reorders or removes items (the current item moving then is
    // no choice of the user).
    bool changing() const { return m_changing > 0; }

signals:
    void captionChanged(const QString &caption);
    // A server became the current one (-1: none); its view scrolls to it.
    void currentServerChanged(int index);
    // Long additions run with the list's view hidden, deletions with its updates paused.
    void viewHidden(bool hidden);
    void viewFrozen(bool frozen);

private:
    bool fetch(const QString &url, const QString &target, QString *reason);
    QSet<QString> serverNames() const;

    Shell &sh;
    QNetworkAccessManager *m_net = nullptr;
    QString m_url;
    bool m_loaded = false;
    int m_changing = 0;
};
