#pragma once
#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSslSocket>
#include <QString>
#include <QTimer>
#include <functional>

class QIODevice;

struct NewsTransportHeader {
    QString Name;
    QString value;
};

struct NewsTransportPart {
    QString ContentType;          // lower-case top-level type
    QString ContentDisposition;
    QByteArray Body;              // still transfer-encoded, CR LF lines
};

struct NewsTransportMessage {
    QList<NewsTransportHeader> Headers;   // in article order
    QString MIMEVersion;                   // empty for a plain article
    QByteArray Body;                       // still transfer-encoded, CR LF lines
    QString ContentType;                   // lower-case top-level type, "" when none
    QString ContentDisposition;
    QList<NewsTransportPart> Parts;        // leaf parts of a multipart message, in order
    QByteArray Raw;                        // the whole article: headers, blank line, body; CR LF; dot-unstuffed
    QString header(const QString &name) const;
};

struct NewsTransportArticle {
    qint64 Number = 0;
    NewsTransportMessage Message;
};

class NewsTransportGroup {
public:
    QString Name;
    qint64 First = 0;
    qint64 Last = 0;
    qint64 Estimated = 0;
    QList<NewsTransportArticle> Articles;

    int Count() const { return int(Articles.size()); }
    const NewsTransportArticle &Item(int i) const { return Articles.at(i); }
    // Moves out what has arrived so far; a listing drains it while a long answer streams in.
    QList<NewsTransportArticle> TakeArticles();
};

class NewsTransportGroupList {
public:
    int Count() const { return int(Groups.size()); }
    const NewsTransportGroup &Item(int i) const { return Groups.at(i); }
    QList<NewsTransportGroup> Groups;
};

class NewsTransport;

// The main window's side of the transport: the six notifications.
class NewsTransportNotify {
public:
    virtual ~NewsTransportNotify() = default;
    virtual void Connected(NewsTransport *t) = 0;
    virtual void Disconnected(NewsTransport *t) = 0;
    virtual void StateChanged(NewsTransport *t, qint32 oldState, qint32 newState) = 0;
    virtual void Done(NewsTransport *t, qint32 value, bool error, const QString &text) = 0;
    virtual void Debug(NewsTransport *t, const QString &text) = 0;
    virtual void GetReadStream(NewsTransport *t, QIODevice *stream) = 0;
};

// One server entry: "[nntp[s]://]host[:port]".
struct ServerAddress {
    QString host;
    quint16 port = 119;
    bool tls = false;
    bool valid = false;
};
ServerAddress parseServerAddress(const QString &entry);
// UTF-8 when the bytes are valid UTF-8, else Latin-1.
QString textFromBytes(const QByteArray &bytes);
QString textFromBytes(const char *data, qsizetype size);

// An NNTP client (RFC 3977, RFC 4643) over one socket, plain or implicit TLS. Every operation
// returns at once; outcomes arrive as notifications on the object's thread.
class NewsTransport : public QObject {
    Q_OBJECT
public:
    enum State { StateDisconnected = 0, StateConnecting = 1, StateConnected = 2 };

    explicit NewsTransport(QObject *parent = nullptr);
    ~NewsTransport() override;

    void SetNotify(NewsTransportNotify *sink) { m_sink = sink; }
    void SetOption(qint32 value) { m_option = value; }
    void SetProxyType(qint32 type) { m_proxyType = type; }
    void SetProxyHost(const QString &host) { m_proxyHost = host; }
    void SetProxyPort(qint32 port) { m_proxyPort = port; }
    QString Host() const { return m_host; }
    void SetHost(const QString &host) { m_host = host; }
    void SetTimeout(qint32 seconds) { m_timeoutSecs = seconds > 0 ? seconds : 30; }

    void Connect(const QString &host, const QString &user = QString(), const QString &password = QString());
    QString StateText() const;
    qint32 LastError() const { return m_lastError; }

    void RequestGroupList();
    const NewsTransportGroupList &GroupList() const { return m_groups; }
    void SelectGroup(const QString &name);
    NewsTransportGroup &SelectedGroup() { return m_group; }
    void FetchHeaders(qint64 first, qint64 last);
    void FetchArticles(qint64 first, qint64 last);
    void Post(const NewsTransportArticle &article);
    void Disconnect();
    void AbortTransaction();

    bool LimitExceeded() const { return m_limitExceeded; }
    bool PostingAllowed() const { return m_postingAllowed; }
    bool Busy() const { return m_busy; }

    void SetCertificateCheck(std::function<bool(const QString &host, const QString &sha256, const QString &reason)> check)
    {
        m_certCheck = std::move(check);
    }

signals:
    void Connected(NewsTransport *t);
    void Disconnected(NewsTransport *t);
    void StateChanged(NewsTransport *t, qint32 oldState, qint32 newState);
    void Done(NewsTransport *t, qint32 value, bool error, const QString &text);
    void Debug(NewsTransport *t, const QString &text);
    void GetReadStream(NewsTransport *t, QIODevice *stream);

private:
    // One command and what to do with its answer.
    struct Step {
        QByteArray command;                               // sent as is + CR LF; empty: wait for the greeting
        bool secret = false;                              // never shown anywhere
        std::function<bool(int code)> multiline;          // does this status open a data block?
        std::function<void(int code, const QByteArray &line)> onStatus;
        std::function<void(const char *data, qsizetype len)> onData;   // one dot-unstuffed line
        std::function<void()> onDataEnd;
    };

    void setState(State s);
    void emitDebug(const QString &line);
    void emitDone(qint32 value, bool error, const QString &text);
    void fail(qint32 code, const QString &reason);    // ends the running transaction with an error
    void startTransaction();
    void finishTransaction(qint32 value);
    void send(Step step);
    void openSocket();
    void onReadyRead();
    void processBuffer();
    void onSocketDisconnected();
    void onSocketError(QAbstractSocket::SocketError e);
    void onSslErrors(const QList<QSslError> &errors);
    void onInactivity();
    void handshake(std::function<void()> then);        // greeting, MODE READER, AUTHINFO
    void ensureSession(std::function<void()> then);    // reconnects silently when the link was lost
    void fetchNextArticle();
    void startOver();
    void startHeaderFetch();
    void armTimer();

    NewsTransportNotify *m_sink = nullptr;
    qint32 m_option = 0;
    qint32 m_proxyType = 0;
    QString m_proxyHost;
    qint32 m_proxyPort = 0;
    QString m_host;
    QString m_user, m_password;
    ServerAddress m_addr;
    qint32 m_timeoutSecs = 30;

    QSslSocket *m_sock = nullptr;
    QTimer m_timer;
    QByteArray m_buf;
    qsizetype m_bufPos = 0;
    State m_state = StateDisconnected;
    bool m_linkUp = false;          // the socket holds a working session
    bool m_handshaking = false;
    bool m_busy = false;
    bool m_aborted = false;         // the running transaction was stopped: swallow its rest
    bool m_quitting = false;
    bool m_inData = false;
    qint32 m_lastError = 0;
    bool m_limitExceeded = false;
    bool m_postingAllowed = false;
    QList<Step> m_queue;            // steps waiting for their turn (one is on the wire at a time)
    bool m_waiting = false;         // a step is on the wire
    Step m_current;
    std::function<bool(const QString &, const QString &, const QString &)> m_certCheck;
    bool m_certRefused = false;

    NewsTransportGroupList m_groups;
    NewsTransportGroup m_group;
    QString m_selectedName;         // the group the server has selected on this socket
    int m_overFormatKnown = 0;      // 0 unknown, 1 has Path, -1 lacks Path
    QStringList m_overExtra;        // names of the fields after the seven standard ones
    qint64 m_fetchFirst = 0, m_fetchLast = 0, m_fetchNext = 0;
    QHash<qint64, QString> m_paths;
    QByteArray m_article;
};
