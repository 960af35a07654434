// NewsTransport: the program's one NNTP client. Every operation returns at
// once; outcomes arrive as notifications (Qt signals, mirrored to the sink).
#pragma once

#include "news/transport/NewsMessage.h"
#include "news/transport/TransportLimits.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <functional>
#include <memory>

class QIODevice;
class QSslSocket;
class QSslError;

class NewsTransport;

class NewsTransportNotify {  // the main window implements it
public:
    virtual ~NewsTransportNotify() = default;
    virtual void Connected(NewsTransport *t) = 0;
    virtual void Disconnected(NewsTransport *t) = 0;
    virtual void StateChanged(NewsTransport *t, qint32 oldState, qint32 newState) = 0;
    virtual void Done(NewsTransport *t, qint32 value, bool error, const QString &text) = 0;
    virtual void Debug(NewsTransport *t, const QString &text) = 0;
    virtual void GetReadStream(NewsTransport *t, QIODevice *stream) = 0;
};

class NewsTransport : public QObject {
    Q_OBJECT
public:
    // Values passed to StateChanged.
    enum State : qint32 {
        StateDisconnected = 0,
        StateConnecting = 1,   // name lookup, socket, TLS, greeting, log-in
        StateConnected = 2,    // session open, no transaction running
        StateBusy = 3,         // session open, a transaction runs
        StateDisconnecting = 4
    };
    // LastError values for failures that carry no NNTP status code.
    enum LocalError : qint32 {
        ErrorNone = 0,
        ErrorAddress = 1,      // the server entry cannot be parsed
        ErrorSocket = 2,       // name lookup or connection failed
        ErrorTimeout = 3,      // no answer within the time-out
        ErrorDropped = 4,      // the server closed the connection during a transaction
        ErrorTls = 5,          // TLS handshake failed or the certificate was refused
        ErrorBusy = 6,         // another transaction is running
        ErrorNotConnected = 7,
        ErrorProtocol = 8,     // an answer the client cannot use
        ErrorInsecure = 9,     // credentials would have gone out unencrypted
        ErrorTooLarge = 10     // an answer passed the transport's bounds (TransportLimits)
    };
    // Bits of SetOption.
    enum Option : qint32 { OptionNoModeReader = 1 };
    enum ProxyType : qint32 { ProxyNone = 0, ProxyHttp = 1, ProxySocks5 = 3 };

    explicit NewsTransport(QObject *parent = nullptr);
    ~NewsTransport() override;

    void SetNotify(NewsTransportNotify *sink);
    void SetOption(qint32 value);
    qint32 Option() const { return m_option; }
    void SetProxyType(qint32 type);
    void SetProxyHost(const QString &host);
    void SetProxyPort(qint32 port);
    QString Host() const { return m_host; }
    void SetHost(const QString &host);
    void SetTimeout(qint32 seconds);
    qint32 Timeout() const { return m_timeoutSeconds; }
    // The bounds answers are held to (see TransportLimits.h); new transports take
    // DefaultLimits(), which tests may lower.
    void SetLimits(const TransportLimits &limits) { m_limits = limits; }
    const TransportLimits &Limits() const { return m_limits; }
    static TransportLimits &DefaultLimits();

    void Connect(const QString &host, const QString &user = QString(),
                 const QString &password = QString());
    QString StateText() const;
    qint32 State() const { return m_state; }
    qint32 LastError() const { return m_lastError; }

    void RequestGroupList();
    const NewsTransportGroupList &GroupList() const { return m_groupList; }
    void SelectGroup(const QString &name);
    NewsTransportGroup &SelectedGroup() { return m_group; }
    void FetchHeaders(qint64 first, qint64 last);
    void FetchArticles(qint64 first, qint64 last);
    void Post(const NewsTransportArticle &article);
    void Disconnect();
    void AbortTransaction();

    bool LimitExceeded() const { return m_limitExceeded; }
    // Whether the user name and password of this session went out unencrypted (a plain nntp://
    // server that offers no STARTTLS). The first time, a Debug line says so.
    bool CredentialsInClear() const { return m_credentialsInClear; }
    bool PostingAllowed() const { return m_postingAllowed; }
    bool Busy() const { return m_op != Op::None; }

    // Asked when a TLS certificate cannot be verified; true accepts it.
    using CertificateCheck = std::function<bool(const QString &host, const QString &sha256Fingerprint,
                                                const QString &reason)>;
    void SetCertificateCheck(CertificateCheck check) { m_certCheck = std::move(check); }

    // Long listings: while on, FetchHeaders keeps the overview answer as text instead of parsed
    // articles, in blocks of about 1 MiB: whole lines as the server sent them (each ending in LF,
    // CR LF on the wire), still dot-stuffed, without the terminating line. When the format has
    // no Path and Paths were fetched apart, each block carries those of its lines (UTF-8, by
    // article number). Switching it on drops old blocks.
    struct OverviewText {
        QByteArray text;
        std::shared_ptr<const QHash<qint64, QByteArray>> paths;
    };
    void SetRawOverview(bool on);
    // The whole lines that have come so far.
    QList<OverviewText> TakeOverviewRecords();
    // Gives a spent block back: the next text is read into its memory (no fresh pages).
    void ReturnOverviewBlock(QByteArray block);
    // When set, each block goes to sink the moment it is full instead of waiting to be taken
    // (a reader on another thread then never waits for the event loop). SetRawOverview(false)
    // clears it.
    void SetOverviewSink(std::function<void(OverviewText &&)> sink) { m_textSink = std::move(sink); }
    // Whether the server's bytes wait to be read right now (a reader with other work to do
    // gets back to the socket first).
    bool InputWaiting() const;
    // While paused nothing more is read from the server (the socket's buffer fills and TCP holds
    // the rest back) and the time-out does not run; for a reader that cannot keep up.
    void SetReadPaused(bool paused);
    // The overview format of this session (known once FetchHeaders has asked for it).
    const OverviewFormat &OverviewFormatInUse() const { return m_fmt; }

    // Articles per HDR/OVER round when the Path column has to be fetched apart.
    void SetPathChunk(qint64 articles) { m_pathChunk = qMax<qint64>(1, articles); }

signals:
    void Connected(NewsTransport *t);
    void Disconnected(NewsTransport *t);
    void StateChanged(NewsTransport *t, qint32 oldState, qint32 newState);
    void Done(NewsTransport *t, qint32 value, bool error, const QString &text);
    void Debug(NewsTransport *t, const QString &text);
    void GetReadStream(NewsTransport *t, QIODevice *stream);

private:
    enum class Op { None, Connect, GroupList, SelectGroup, FetchHeaders, FetchArticles, Post, Quit };
    enum class Step {
        None, Greeting, Capabilities, StartTls, TlsHandshake, ModeReader, AuthUser, AuthPass, Reselect,
        List, ListPlain, Group, OverFmt, Hdr, Over, Article, PostStart, PostData, Quit
    };

    // operations
    bool beginOperation(Op op);
    void runOperation();
    void nextHeaderChunk();
    void nextArticle();
    void nextRange();
    void finishOperation(qint32 code, const QString &text);
    void failOperation(qint32 code, const QString &text, qint32 lastError);
    void failLater(qint32 lastError, const QString &text);

    // connection
    void openSocket();
    void teardownSocket();
    void sendCommand(const QByteArray &command, Step step);
    void startHandshakeStep(qint32 code, const QString &text);
    void sendModeReaderOrLogin();
    void sendLogin();
    void sessionReady();
    void connectFailed(qint32 lastError, qint32 code, const QString &text, bool shown = false);
    void connectionLost(const QString &reason);
    void setState(qint32 state);
    void armTimer();

    // input
    void onReadyRead();
    void onSocketError();
    void onSocketDisconnected();
    void onSslErrors(const QList<QSslError> &errors);
    void onTimeout();
    void timedOut(qint32 seconds);
    void processBuffer();
    void handleStatus(const QByteArray &line);
    // The answer's status line, by the step that waits for it.
    void listStatus(qint32 code, const QString &text);
    void groupStatus(const QByteArray &line, qint32 code, const QString &text);
    void overviewFormatStatus(qint32 code);
    void headerStatus(qint32 code, const QString &text);
    void overviewStatus(qint32 code, const QString &text);
    void postStatus(qint32 code, const QString &text);
    void handleData(const char *data, qsizetype size);
    void handleDataEnd();
    bool rawText() const { return m_rawOverview && m_step == Step::Over && m_inData; }
    qsizetype absorbText(const char *data, qsizetype size);
    void textRoom(qsizetype need);
    qsizetype scanText(qsizetype from);
    qsizetype tailEnd(qsizetype from);
    void textEnded(qsizetype lineStart);
    qsizetype endText(qsizetype lineStart, bool keepRest);
    void readTextDirect();
    void lineTooLong();
    void answerTooLarge(const QString &what);
    qint64 rangeCount() const;
    qint64 overviewTextLimit() const;
    QString overviewTooLarge() const;
    void countBytes(qint64 n);
    void startRateWatch();
    void stopRateWatch();
    void onRateTick();
    void beginData();

    // notifications (sink first, then the signal)
    void notifyConnected();
    void notifyDisconnected();
    void notifyDone(qint32 value, bool error, const QString &text);
    void notifyDebug(const QString &text);

    NewsTransportNotify *m_sink = nullptr;
    qint32 m_option = 0;
    qint32 m_proxyType = ProxyNone;
    QString m_proxyHost;
    qint32 m_proxyPort = 1080;
    QString m_host;
    qint32 m_timeoutSeconds = 30;
    CertificateCheck m_certCheck;
    TransportLimits m_limits = DefaultLimits();

    ServerAddress m_address;
    QString m_user, m_password;
    QSslSocket *m_socket = nullptr;
    quint64 m_generation = 0;      // bumped whenever the socket is dropped
    QTimer m_timer;
    QByteArray m_buf;
    qsizetype m_pos = 0;

    qint32 m_state = StateDisconnected;
    qint32 m_lastError = ErrorNone;
    bool m_limitExceeded = false;
    bool m_postingAllowed = false;
    bool m_session = false;        // a session was opened and not closed by Disconnect()
    bool m_needReconnect = false;  // the socket went away while the session was idle
    bool m_reconnecting = false;
    bool m_groupSelected = false;
    bool m_inData = false;
    bool m_modeReaderDone = false;
    bool m_authDone = false;
    bool m_capabilitiesAsked = false;  // this connection asked whether STARTTLS is offered
    bool m_offersStartTls = false;
    bool m_credentialsInClear = false;

    Op m_op = Op::None;
    Step m_step = Step::None;
    qint32 m_lastCode = 0;
    QString m_lastStatus;

    NewsTransportGroupList m_groupList;
    NewsTransportGroup m_group;
    QString m_pendingGroup;

    // FetchHeaders
    qint64 m_first = 0, m_last = 0, m_next = 0, m_chunkLast = 0;
    qint64 m_pathChunk = 5000;
    bool m_rangeDone = false;            // the range's last article has been asked for
    bool m_fmtKnown = false;
    OverviewFormat m_fmt;
    QList<QByteArray> m_fmtLines;
    QByteArray m_overCommand = "OVER";
    QByteArray m_hdrCommand = "HDR";  // empty once neither HDR nor XHDR works
    QHash<qint64, QByteArray> m_paths;   // Paths fetched apart for the current range (UTF-8)
    bool m_rawOverview = false;
    bool m_readPaused = false;
    QByteArray m_text;                   // the overview text block being filled
    qsizetype m_textDone = 0;            // its whole lines end here (a line starts here)
    std::shared_ptr<const QHash<qint64, QByteArray>> m_chunkPaths;   // those of the current range
    QList<OverviewText> m_textBlocks;    // full blocks, not yet taken
    std::function<void(OverviewText &&)> m_textSink;
    QList<QByteArray> m_spareBlocks;

    // bounds of the answer being read
    qint64 m_answerLines = 0;            // lines of the current multi-line answer
    qint64 m_textBytes = 0;              // bytes of the current overview answer kept as text

    // floor rate: bytes either way per second over the last window, newest last
    QTimer m_rateTimer;
    QList<qint64> m_rateSeconds;
    qint64 m_rateNow = 0;                // bytes of the second running

    // FetchArticles
    QByteArray m_articleRaw;
    qint64 m_articleNumber = 0;

    // Post
    QByteArray m_postData;
};
