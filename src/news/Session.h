#pragma once
#include "news/transport/NewsTransport.h"

#include <QObject>
#include <QPointer>
#include <functional>

class ItemList;
class MessageGrid;
class Shell;

// What a transaction came to, for the caller that ran it.
struct TransactionResult {
    enum class Outcome { Done, Failed, Stopped };
    Outcome outcome = Outcome::Failed;
    qint32 status = 0;      // the server's status code of the answer, 0 when none came
    qint32 error = 0;       // the transport's LastError(), or -1 when the server refused
    QString text;           // the server's last text (or the transport's reason)

    bool ok() const { return outcome == Outcome::Done; }
    explicit operator bool() const { return ok(); }
    bool stopped() const { return outcome == Outcome::Stopped; }
};

// Opening and closing the session with the current server, the waits for transactions, and the
// handling of the transport's notifications. The session keeps the program-wide flags of a
// transaction (TransactionDone, TransportError, LastTransportText) true for what the user sees;
// whoever runs a transaction reads its outcome from the result.
class NewsSession : public QObject, public NewsTransportNotify {
    Q_OBJECT
public:
    // lstGroups, lstMsgBuffer and grid are emptied when a session closes.
    NewsSession(Shell &sh, ItemList &lstGroups, ItemList &lstMsgBuffer, MessageGrid &grid, QObject *parent = nullptr);
    ~NewsSession() override;

    // The current transport object. It is replaced at every disconnect: re-read it after a wait.
    NewsTransport *transport() const { return m_t; }
    void CreateTransport();

    // Opens a session with the current server unless one is open with it; with loadGroups the
    // group list is asked for. True when a session is open at the end.
    bool NNTP_Connect(bool loadGroups);
    void NNTP_Disconnect();
    // The Connect command: connects, or disconnects while the command reads "Disconnect".
    void ConnectCommand();

    // Clears TransactionDone and TransportError, starts the operation, and waits until it is
    // done, fails or Stop is pressed; whileWaiting (when given) runs at every wake of the wait.
    // The program-wide flags stay true for what the window shows; the caller reads the outcome
    // from the result.
    TransactionResult runTransaction(const std::function<void(NewsTransport *)> &start,
                                     const std::function<void()> &whileWaiting = {});
    // A session is open with the server (idle or running a transaction).
    bool isConnected() const;
    // Open and idle; with warn, "Please Disconnect First" is shown when it is.
    bool IsConnectedIdle(bool warn);
    bool transactionRunning() const { return m_inTransaction > 0; }

    // The credential string kept with a server in the server list ("user|||password").
    std::function<QString(const QString &server)> serverData;

    static QString ServerFileTag(const QString &server);
    // user ID before the first "|||", password after it; no separator gives two empty texts.
    static QPair<QString, QString> splitCredentials(const QString &data);

    // Remembered certificates the user accepted: "host sha256" lines in the application directory.
    static bool isTrustedCertificate(const QString &host, const QString &sha256);
    static void trustCertificate(const QString &host, const QString &sha256);

    // The commands' disconnected state (start-up and after every disconnect).
    void applyDisconnectedState();

    // NewsTransportNotify
    void Connected(NewsTransport *t) override;
    void Disconnected(NewsTransport *t) override;
    void StateChanged(NewsTransport *t, qint32 oldState, qint32 newState) override;
    void Done(NewsTransport *t, qint32 value, bool error, const QString &text) override;
    void Debug(NewsTransport *t, const QString &text) override;
    void GetReadStream(NewsTransport *t, QIODevice *stream) override;

signals:
    // NNTP_Disconnect has ended: no session is open and the group list is empty.
    void sessionClosed();

private:
    // connecting
    void noServerConfigured();
    void showConnecting();
    void startConnect();
    bool waitForConnect();
    void connectFailed();
    void connectSucceeded(bool loadGroups);
    void setConnectedLook(bool connected);
    // disconnecting
    void showDisconnecting();
    void closeTransport();
    void showDisconnected();

    void limitExceeded();
    void deleteServerMessageCaches(const QString &server);
    bool transportClosed() const;

    Shell &sh;
    ItemList &m_groups;
    ItemList &m_msgBuffer;
    MessageGrid &m_grid;
    QPointer<NewsTransport> m_t;
    int m_inTransaction = 0;
    qint32 m_lastStatus = 0;
    bool m_limitHandling = false;
    bool m_connectedLook = false;   // the Connect command reads "Disconnect"
};
