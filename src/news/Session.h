#pragma once
#include "news/transport/NewsTransport.h"

#include <QObject>
#include <QPointer>
#include <functional>

class frmMain;

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
// main window's handling of the transport's notifications.
class NewsSession : public QObject, public NewsTransportNotify {
    Q_OBJECT
public:
    explicit NewsSession(frmMain &m);
    ~NewsSession() override;

    // The current transport object. It is replaced at every disconnect: re-read it after a wait.
    NewsTransport *transport() const { return m_t; }
    void CreateTransport();

    void NNTP_Connect(bool loadGroups);
    void NNTP_Disconnect();
    // The Connect command: by the caption of the menu item.
    void ConnectCommand();

    // Clears TransactionDone and TransportError, starts the operation, and waits until it is
    // done, fails or Stop is pressed. The program-wide flags stay true for what the window
    // shows; the caller reads the outcome from the result. whileWaiting, when given, runs each
    // time the wait wakes (work that goes with the transaction, such as building what streams in).
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

    // The window's disconnected state (start-up and after every disconnect).
    void applyDisconnectedState();

    // NewsTransportNotify
    void Connected(NewsTransport *t) override;
    void Disconnected(NewsTransport *t) override;
    void StateChanged(NewsTransport *t, qint32 oldState, qint32 newState) override;
    void Done(NewsTransport *t, qint32 value, bool error, const QString &text) override;
    void Debug(NewsTransport *t, const QString &text) override;
    void GetReadStream(NewsTransport *t, QIODevice *stream) override;

private:
    void limitExceeded();
    void deleteServerMessageCaches(const QString &server);

    frmMain &m;
    QPointer<NewsTransport> m_t;
    int m_inTransaction = 0;
    qint32 m_lastStatus = 0;
    bool m_limitHandling = false;
};
