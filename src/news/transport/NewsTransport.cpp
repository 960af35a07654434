#include "news/transport/NewsTransport.h"
#include "news/transport/SafeText.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QNetworkProxy>
#include <QSslCertificate>
#include <QSslError>
#include <QSslSocket>

#include <cstring>
#include <immintrin.h>
#include <poll.h>
#include <sys/socket.h>

namespace {
const QString kConnected = QStringLiteral("Connected to NNTP Server");
const QString kDisconnected = QStringLiteral("Disconnected from NNTP Server");
const QString kConnecting = QStringLiteral("Connecting to NNTP Server");
const QString kDisconnecting = QStringLiteral("Disconnecting from NNTP Server");

constexpr qsizetype kTextBlock = 1 << 20;   // raw overview text is handed over in blocks of this size

qint32 statusCode(const QByteArray &line)
{
    if (line.size() < 3)
        return 0;
    qint32 code = 0;
    for (int i = 0; i < 3; ++i) {
        const char c = line.at(i);
        if (c < '0' || c > '9')
            return 0;
        code = code * 10 + (c - '0');
    }
    if (line.size() > 3 && line.at(3) != ' ' && line.at(3) != '\t')
        return 0;
    return code;
}

// The first LF in [p, p + n) that the next byte (also inside) is a '.' after: where a terminating
// or dot-stuffed line may start. -1 when there is none.
qsizetype findLfDotSse2(const char *p, qsizetype n)
{
    qsizetype i = 0;
    const __m128i lf = _mm_set1_epi8('\n'), dot = _mm_set1_epi8('.');
    for (; i + 17 <= n; i += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + i + 1));
        const unsigned m = unsigned(_mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(a, lf), _mm_cmpeq_epi8(b, dot))));
        if (m)
            return i + __builtin_ctz(m);
    }
    for (; i + 1 < n; ++i)
        if (p[i] == '\n' && p[i + 1] == '.')
            return i;
    return -1;
}

__attribute__((target("avx2"))) qsizetype findLfDotAvx2(const char *p, qsizetype n)
{
    qsizetype i = 0;
    const __m256i lf = _mm256_set1_epi8('\n'), dot = _mm256_set1_epi8('.');
    for (; i + 65 <= n; i += 64) {
        const __m256i a0 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + i));
        const __m256i b0 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + i + 1));
        const __m256i a1 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + i + 32));
        const __m256i b1 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + i + 33));
        const __m256i m0 = _mm256_and_si256(_mm256_cmpeq_epi8(a0, lf), _mm256_cmpeq_epi8(b0, dot));
        const __m256i m1 = _mm256_and_si256(_mm256_cmpeq_epi8(a1, lf), _mm256_cmpeq_epi8(b1, dot));
        if (!_mm256_testz_si256(_mm256_or_si256(m0, m1), _mm256_or_si256(m0, m1))) {
            const quint64 m = quint64(unsigned(_mm256_movemask_epi8(m0))) | (quint64(unsigned(_mm256_movemask_epi8(m1))) << 32);
            return i + __builtin_ctzll(m);
        }
    }
    const qsizetype rest = findLfDotSse2(p + i, n - i);
    return rest < 0 ? -1 : i + rest;
}

__attribute__((target("avx512f,avx512bw"))) qsizetype findLfDotAvx512(const char *p, qsizetype n)
{
    qsizetype i = 0;
    const __m512i lf = _mm512_set1_epi8('\n'), dot = _mm512_set1_epi8('.');
    for (; i + 129 <= n; i += 128) {
        const __mmask64 m0 = _mm512_cmpeq_epi8_mask(_mm512_loadu_si512(p + i), lf) &
                             _mm512_cmpeq_epi8_mask(_mm512_loadu_si512(p + i + 1), dot);
        const __mmask64 m1 = _mm512_cmpeq_epi8_mask(_mm512_loadu_si512(p + i + 64), lf) &
                             _mm512_cmpeq_epi8_mask(_mm512_loadu_si512(p + i + 65), dot);
        if (m0 | m1)
            return i + (m0 ? __builtin_ctzll(m0) : 64 + __builtin_ctzll(m1));
    }
    const qsizetype rest = findLfDotSse2(p + i, n - i);
    return rest < 0 ? -1 : i + rest;
}

using FindLfDot = qsizetype (*)(const char *, qsizetype);
const FindLfDot findLfDot = [] {
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw"))
        return findLfDotAvx512;
    return __builtin_cpu_supports("avx2") ? findLfDotAvx2 : findLfDotSse2;
}();

QByteArray dotStuffed(const QByteArray &raw)
{
    QByteArray out;
    out.reserve(raw.size() + raw.size() / 30 + 8);
    qsizetype pos = 0;
    const qsizetype n = raw.size();
    while (pos < n) {
        qsizetype eol = raw.indexOf('\n', pos);
        const bool last = eol < 0;
        if (last)
            eol = n;
        qsizetype end = eol;
        if (end > pos && raw.at(end - 1) == '\r')
            --end;
        if (end > pos && raw.at(pos) == '.')
            out += '.';
        out.append(raw.constData() + pos, end - pos);
        out += "\r\n";
        pos = eol + 1;
    }
    out += ".\r\n";
    return out;
}
}  // namespace

TransportLimits &NewsTransport::DefaultLimits()
{
    static TransportLimits limits;
    return limits;
}

NewsTransport::NewsTransport(QObject *parent) : QObject(parent)
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::CoarseTimer);
    connect(&m_timer, &QTimer::timeout, this, &NewsTransport::onTimeout);
    m_rateTimer.setInterval(1000);
    m_rateTimer.setTimerType(Qt::CoarseTimer);
    connect(&m_rateTimer, &QTimer::timeout, this, &NewsTransport::onRateTick);
}

NewsTransport::~NewsTransport()
{
    // The owner may drop the transport from inside one of its notifications,
    // that is while the socket is still emitting: let the socket die later.
    if (m_socket) {
        QSslSocket *s = m_socket;
        m_socket = nullptr;
        s->disconnect(this);
        s->setParent(nullptr);
        s->abort();
        s->deleteLater();
    }
}

void NewsTransport::SetNotify(NewsTransportNotify *sink) { m_sink = sink; }
void NewsTransport::SetOption(qint32 value) { m_option = value; }
void NewsTransport::SetProxyType(qint32 type) { m_proxyType = type; }
void NewsTransport::SetProxyHost(const QString &host) { m_proxyHost = host.trimmed(); }
void NewsTransport::SetProxyPort(qint32 port) { m_proxyPort = port; }
void NewsTransport::SetHost(const QString &host) { m_host = host; }
void NewsTransport::SetTimeout(qint32 seconds) { m_timeoutSeconds = seconds > 0 ? seconds : 30; }

QString NewsTransport::StateText() const
{
    switch (m_state) {
    case StateConnecting:
        return kConnecting;
    case StateConnected:
    case StateBusy:
        return kConnected;
    case StateDisconnecting:
        return kDisconnecting;
    default:
        return kDisconnected;
    }
}

// ---------------------------------------------------------------- notifications

void NewsTransport::notifyConnected()
{
    if (m_sink)
        m_sink->Connected(this);
    emit Connected(this);
}

void NewsTransport::notifyDisconnected()
{
    if (m_sink)
        m_sink->Disconnected(this);
    emit Disconnected(this);
}

void NewsTransport::notifyDone(qint32 value, bool error, const QString &text)
{
    if (m_sink)
        m_sink->Done(this, value, error, text);
    emit Done(this, value, error, text);
}

void NewsTransport::notifyDebug(const QString &text)
{
    if (m_sink)
        m_sink->Debug(this, text);
    emit Debug(this, text);
}

void NewsTransport::setState(qint32 state)
{
    if (state == m_state)
        return;
    const qint32 old = m_state;
    m_state = state;
    if (m_sink)
        m_sink->StateChanged(this, old, state);
    emit StateChanged(this, old, state);
}

// ---------------------------------------------------------------- connection

void NewsTransport::Connect(const QString &host, const QString &user, const QString &password)
{
    if (m_state != StateDisconnected) {
        if (m_state == StateConnected || m_state == StateBusy) {
            if (host == m_host || host.isEmpty()) {
                QPointer<NewsTransport> self(this);  // already open
                QMetaObject::invokeMethod(this, [self] {
                    if (self)
                        self->notifyConnected();
                }, Qt::QueuedConnection);
                return;
            }
        }
        teardownSocket();
        setState(StateDisconnected);
    }
    if (!host.isEmpty() && m_host.isEmpty())
        m_host = host;
    m_lastError = ErrorNone;
    m_limitExceeded = false;
    m_session = false;
    m_needReconnect = false;
    m_reconnecting = false;
    m_groupSelected = false;
    m_fmtKnown = false;
    m_overCommand = "OVER";
    m_hdrCommand = "HDR";
    m_user = user;
    m_password = password;
    m_address = parseServerAddress(host.isEmpty() ? m_host : host);
    if (!m_address.valid) {
        m_lastError = ErrorAddress;
        const QString text = QStringLiteral("Invalid news server address \"%1\"").arg(host);
        QPointer<NewsTransport> self(this);
        QMetaObject::invokeMethod(this, [self, text] {
            if (!self)
                return;
            self->notifyDebug(text);
            if (self)
                self->notifyDone(0, true, text);
        }, Qt::QueuedConnection);
        return;
    }
    m_op = Op::Connect;
    setState(StateConnecting);
    openSocket();
}

void NewsTransport::openSocket()
{
    teardownSocket();
    m_socket = new QSslSocket(this);
    m_socket->setReadBufferSize(1024 * 1024);
    if (!m_proxyHost.isEmpty() && m_proxyType == ProxySocks5)
        m_socket->setProxy(QNetworkProxy(QNetworkProxy::Socks5Proxy, m_proxyHost, quint16(m_proxyPort)));
    else if (!m_proxyHost.isEmpty() && m_proxyType == ProxyHttp)
        m_socket->setProxy(QNetworkProxy(QNetworkProxy::HttpProxy, m_proxyHost, quint16(m_proxyPort)));
    else
        m_socket->setProxy(QNetworkProxy::NoProxy);
    connect(m_socket, &QIODevice::readyRead, this, &NewsTransport::onReadyRead);
    connect(m_socket, &QAbstractSocket::errorOccurred, this, &NewsTransport::onSocketError);
    connect(m_socket, &QAbstractSocket::disconnected, this, &NewsTransport::onSocketDisconnected);
    connect(m_socket, &QSslSocket::sslErrors, this, &NewsTransport::onSslErrors);
    connect(m_socket, &QSslSocket::encrypted, this, [this] {
        if (m_step == Step::TlsHandshake)
            sendModeReaderOrLogin();   // STARTTLS done: everything from here on is encrypted
    });
    connect(m_socket, &QIODevice::bytesWritten, this, [this](qint64 bytes) {
        countBytes(bytes);
        if (m_timer.isActive())
            armTimer();
    });
    m_buf.clear();
    m_pos = 0;
    m_inData = false;
    m_modeReaderDone = false;
    m_authDone = false;
    m_capabilitiesAsked = false;
    m_offersStartTls = false;
    m_step = Step::Greeting;
    armTimer();
    startRateWatch();
    if (m_address.tls)
        m_socket->connectToHostEncrypted(m_address.host, m_address.port);
    else
        m_socket->connectToHost(m_address.host, m_address.port);
}

void NewsTransport::teardownSocket()
{
    ++m_generation;
    m_timer.stop();
    stopRateWatch();
    m_inData = false;
    m_step = Step::None;
    m_buf.clear();
    m_pos = 0;
    if (m_socket) {
        QSslSocket *s = m_socket;
        m_socket = nullptr;
        s->disconnect(this);
        s->setParent(nullptr);  // may be emitting right now; see the destructor
        s->abort();
        s->deleteLater();
    }
}

void NewsTransport::armTimer()
{
    m_timer.start(m_timeoutSeconds * 1000);
}

void NewsTransport::sendCommand(const QByteArray &command, Step step)
{
    m_step = step;
    m_inData = false;
    if (!m_socket)
        return;
    m_socket->write(command + "\r\n");
    armTimer();
}

void NewsTransport::onSslErrors(const QList<QSslError> &errors)
{
    if (!m_socket)
        return;
    QSslCertificate cert = m_socket->peerCertificate();
    QStringList reasons;
    for (const QSslError &e : errors) {
        reasons << e.errorString();
        if (cert.isNull() && !e.certificate().isNull())
            cert = e.certificate();
    }
    const QString fingerprint =
        QString::fromLatin1(cert.digest(QCryptographicHash::Sha256).toHex(':').toUpper());
    const QString reason = reasons.join(QStringLiteral("; "));
    if (m_certCheck && m_certCheck(m_address.host, fingerprint, reason)) {
        if (m_socket)
            m_socket->ignoreSslErrors(errors);
        return;
    }
    connectFailed(ErrorTls, 0,
                  QStringLiteral("Certificate of %1 not accepted: %2").arg(m_address.host, reason));
}

void NewsTransport::onSocketError()
{
    if (!m_socket)
        return;
    const QAbstractSocket::SocketError err = m_socket->error();
    if (m_state == StateConnecting || m_reconnecting) {
        QString text;
        qint32 code = ErrorSocket;
        switch (err) {
        case QAbstractSocket::HostNotFoundError:
            text = QStringLiteral("Server %1 not found").arg(m_address.host);
            break;
        case QAbstractSocket::ConnectionRefusedError:
            text = QStringLiteral("Connection refused by %1:%2").arg(m_address.host).arg(m_address.port);
            break;
        case QAbstractSocket::SslHandshakeFailedError:
        case QAbstractSocket::SslInternalError:
        case QAbstractSocket::SslInvalidUserDataError:
            code = ErrorTls;
            text = QStringLiteral("TLS with %1 failed: %2").arg(m_address.host, m_socket->errorString());
            break;
        case QAbstractSocket::RemoteHostClosedError:
            code = ErrorDropped;
            text = QStringLiteral("%1 closed the connection").arg(m_address.host);
            break;
        default:
            text = QStringLiteral("Unable to connect to %1:%2 - %3")
                       .arg(m_address.host).arg(m_address.port).arg(m_socket->errorString());
        }
        connectFailed(code, 0, text);
        return;
    }
    if (err == QAbstractSocket::RemoteHostClosedError)
        return;  // handled by onSocketDisconnected
    if (m_state == StateBusy || m_state == StateDisconnecting || m_state == StateConnected)
        connectionLost(m_socket->errorString());
}

void NewsTransport::onSocketDisconnected()
{
    if (!m_socket)
        return;
    // Whatever is still buffered belongs to the answer: read it first.
    processBuffer();
    if (!m_socket)
        return;
    connectionLost(QStringLiteral("Connection closed by the server"));
}

void NewsTransport::connectionLost(const QString &reason)
{
    if (m_state == StateConnecting || m_reconnecting) {
        connectFailed(ErrorDropped, 0, reason);
        return;
    }
    if (m_state == StateDisconnecting) {
        teardownSocket();
        m_op = Op::None;
        setState(StateDisconnected);
        notifyDisconnected();
        return;
    }
    if (m_state == StateConnected && m_op == Op::None) {
        // The server closed an idle session: reopen it at the next operation.
        teardownSocket();
        m_needReconnect = true;
        return;
    }
    // In the middle of a transaction: that transaction fails and the session ends.
    teardownSocket();
    m_session = false;
    m_needReconnect = false;
    m_op = Op::None;
    m_lastError = ErrorDropped;
    QPointer<NewsTransport> self(this);
    const QString text = QStringLiteral("Connection to %1 lost: %2").arg(m_address.host, reason);
    notifyDebug(text);
    if (!self)
        return;
    setState(StateDisconnected);
    if (!self)
        return;
    notifyDone(0, true, text);
    if (!self)
        return;
    notifyDisconnected();
}

void NewsTransport::connectFailed(qint32 lastError, qint32 code, const QString &text, bool shown)
{
    const bool reconnect = m_reconnecting;
    teardownSocket();
    m_op = Op::None;
    m_reconnecting = false;
    m_session = false;
    m_needReconnect = false;
    m_lastError = lastError ? lastError : code;
    QPointer<NewsTransport> self(this);
    if (!text.isEmpty() && !shown)
        notifyDebug(text);
    if (!self)
        return;
    setState(StateDisconnected);
    if (!self)
        return;
    notifyDone(code, true, text);
    if (!self)
        return;
    if (reconnect)
        notifyDisconnected();
}

void NewsTransport::onTimeout()
{
    timedOut(m_timeoutSeconds);
}

// A time-out after seconds: of silence, or of an answer that came too slowly (onRateTick).
void NewsTransport::timedOut(qint32 seconds)
{
    const QString text = QStringLiteral("No answer from %1 within %2 seconds")
                             .arg(m_address.host).arg(seconds);
    if (m_state == StateConnecting || m_reconnecting) {
        connectFailed(ErrorTimeout, 0, text);
        return;
    }
    if (m_state == StateDisconnecting) {
        teardownSocket();
        m_op = Op::None;
        setState(StateDisconnected);
        notifyDisconnected();
        return;
    }
    if (m_op == Op::None)
        return;
    teardownSocket();
    m_session = false;
    m_op = Op::None;
    m_lastError = ErrorTimeout;
    QPointer<NewsTransport> self(this);
    notifyDebug(text);
    if (!self)
        return;
    setState(StateDisconnected);
    if (!self)
        return;
    notifyDone(0, true, text);
    if (!self)
        return;
    notifyDisconnected();
}

void NewsTransport::Disconnect()
{
    m_session = false;
    m_needReconnect = false;
    m_reconnecting = false;
    if ((m_state == StateConnected) && m_op == Op::None && m_socket &&
        m_socket->state() == QAbstractSocket::ConnectedState) {
        m_op = Op::Quit;
        setState(StateDisconnecting);
        m_timer.start(qMin(m_timeoutSeconds, 5) * 1000);
        m_step = Step::Quit;
        m_socket->write("QUIT\r\n");
        return;
    }
    teardownSocket();
    m_op = Op::None;
    setState(StateDisconnected);
    QPointer<NewsTransport> self(this);
    QMetaObject::invokeMethod(this, [self] {
        if (self)
            self->notifyDisconnected();
    }, Qt::QueuedConnection);
}

void NewsTransport::AbortTransaction()
{
    if (m_state == StateConnecting || (m_reconnecting && m_op != Op::None)) {
        Disconnect();
        return;
    }
    if (m_state != StateBusy || m_op == Op::None)
        return;
    // The rest of the answer is dropped with the connection; the next
    // operation opens a fresh one and restores the group.
    teardownSocket();
    m_op = Op::None;
    m_needReconnect = true;
    setState(StateConnected);
}

// ---------------------------------------------------------------- handshake

void NewsTransport::startHandshakeStep(qint32 code, const QString &text)
{
    switch (m_step) {
    case Step::Greeting:
        if (code == 200 || code == 201) {
            m_postingAllowed = (code == 200);
            if (!m_user.isEmpty() && !m_address.tls && m_proxyType != ProxyHttp) {
                // credentials to send on a plain connection: encrypt first if the server can
                m_capabilitiesAsked = true;
                sendCommand("CAPABILITIES", Step::Capabilities);
                return;
            }
            sendModeReaderOrLogin();
        } else {
            connectFailed(code ? 0 : ErrorProtocol, code, text, true);
        }
        return;
    case Step::ModeReader:
        m_modeReaderDone = true;
        if (code == 200 || code == 201) {
            m_postingAllowed = (code == 200);
            sendModeReaderOrLogin();
        } else if (code == 480) {
            if (m_user.isEmpty())
                connectFailed(0, code, text, true);
            else
                sendLogin();
        } else if (code == 502 || code == 400) {
            connectFailed(0, code, text, true);
        } else {
            sendModeReaderOrLogin();  // the server has no separate reader mode
        }
        return;
    case Step::AuthUser:
        if (code == 281) {
            m_authDone = true;
            sendModeReaderOrLogin();
        } else if (code == 381) {
            sendCommand("AUTHINFO PASS " + m_password.toUtf8(), Step::AuthPass);
        } else {
            connectFailed(code ? 0 : ErrorProtocol, code, text, true);
        }
        return;
    case Step::AuthPass:
        if (code == 281) {
            m_authDone = true;
            sendModeReaderOrLogin();
        } else {
            connectFailed(code ? 0 : ErrorProtocol, code, text, true);
        }
        return;
    case Step::Capabilities:
        if (code == 101)
            beginData();
        else
            sendModeReaderOrLogin();   // no capability list: log in as before
        return;
    case Step::StartTls:
        if (code == 382 && m_socket) {
            // the handshake's certificate is checked as for nntps:// (onSslErrors)
            m_step = Step::TlsHandshake;
            armTimer();
            m_socket->startClientEncryption();
        } else {
            sendModeReaderOrLogin();
        }
        return;
    default:
        return;
    }
}

void NewsTransport::sendModeReaderOrLogin()
{
    if (!m_modeReaderDone && !m_authDone && !(m_option & OptionNoModeReader)) {
        sendCommand("MODE READER", Step::ModeReader);
        return;
    }
    if (!m_user.isEmpty() && !m_authDone) {
        sendLogin();
        return;
    }
    sessionReady();
}

void NewsTransport::sendLogin()
{
    if (m_address.tls && !(m_socket && m_socket->isEncrypted())) {
        connectFailed(ErrorInsecure, 0,
                      QStringLiteral("Refusing to send the password to %1 without encryption")
                          .arg(m_address.host));
        return;
    }
    if (!(m_socket && m_socket->isEncrypted())) {
        if (!m_credentialsInClear) {
            const QString text = QStringLiteral("Sending user name and password to %1 without encryption "
                                                "(the server offers no STARTTLS; nntps:// would encrypt them)")
                                     .arg(m_address.host);
            m_credentialsInClear = true;
            QPointer<NewsTransport> self(this);
            notifyDebug(text);
            if (!self)
                return;
        }
        m_credentialsInClear = true;
    }
    sendCommand("AUTHINFO USER " + m_user.toUtf8(), Step::AuthUser);
}

void NewsTransport::sessionReady()
{
    m_step = Step::None;
    m_session = true;
    m_needReconnect = false;
    if (m_reconnecting) {
        m_reconnecting = false;
        if (m_groupSelected && m_op != Op::SelectGroup) {
            sendCommand("GROUP " + m_group.Name.toUtf8(), Step::Reselect);
            return;
        }
        runOperation();
        return;
    }
    m_timer.stop();
    stopRateWatch();
    m_op = Op::None;
    QPointer<NewsTransport> self(this);
    setState(StateConnected);
    if (self)
        notifyConnected();
}

// ---------------------------------------------------------------- operations

bool NewsTransport::beginOperation(Op op)
{
    if (m_op != Op::None || m_state == StateConnecting || m_state == StateDisconnecting) {
        failLater(ErrorBusy, QStringLiteral("Please wait until current transaction is finished"));
        return false;
    }
    if (!m_session || m_state != StateConnected) {
        failLater(ErrorNotConnected, QStringLiteral("Not connected to a news server"));
        return false;
    }
    m_lastError = ErrorNone;
    m_op = op;
    setState(StateBusy);
    startRateWatch();
    if (m_needReconnect || !m_socket || m_socket->state() != QAbstractSocket::ConnectedState) {
        m_reconnecting = true;
        openSocket();
        return true;
    }
    runOperation();
    return true;
}

void NewsTransport::failLater(qint32 lastError, const QString &text)
{
    m_lastError = lastError;
    QPointer<NewsTransport> self(this);
    QMetaObject::invokeMethod(this, [self, text] {
        if (!self)
            return;
        self->notifyDebug(text);
        if (self)
            self->notifyDone(0, true, text);
    }, Qt::QueuedConnection);
}

void NewsTransport::runOperation()
{
    switch (m_op) {
    case Op::GroupList:
        m_groupList.Groups.clear();
        sendCommand("LIST ACTIVE", Step::List);
        break;
    case Op::SelectGroup:
        sendCommand("GROUP " + m_pendingGroup.toUtf8(), Step::Group);
        break;
    case Op::FetchHeaders:
        if (!m_fmtKnown)
            sendCommand("LIST OVERVIEW.FMT", Step::OverFmt);
        else
            nextHeaderChunk();
        break;
    case Op::FetchArticles:
        nextArticle();
        break;
    case Op::Post:
        sendCommand("POST", Step::PostStart);
        break;
    default:
        break;
    }
}

void NewsTransport::finishOperation(qint32 code, const QString &text)
{
    m_op = Op::None;
    m_step = Step::None;
    m_timer.stop();
    stopRateWatch();
    QPointer<NewsTransport> self(this);
    setState(StateConnected);
    if (self)
        notifyDone(code, false, text);
}

void NewsTransport::failOperation(qint32 code, const QString &text, qint32 lastError)
{
    m_op = Op::None;
    m_step = Step::None;
    m_timer.stop();
    stopRateWatch();
    m_lastError = lastError ? lastError : code;
    QPointer<NewsTransport> self(this);
    setState(StateConnected);
    if (self)
        notifyDone(code, true, text);
}

void NewsTransport::RequestGroupList()
{
    beginOperation(Op::GroupList);
}

void NewsTransport::SelectGroup(const QString &name)
{
    if (m_op == Op::None)  // never touch a running transaction's state
        m_pendingGroup = name.trimmed();
    beginOperation(Op::SelectGroup);
}

void NewsTransport::FetchHeaders(qint64 first, qint64 last)
{
    if (m_op == Op::None) {
        m_group.Articles.clear();
        if (first > last)
            std::swap(first, last);
        m_first = first;
        m_last = last;
        m_next = first;
        m_rangeDone = false;
        m_lastCode = 0;
        m_lastStatus.clear();
    }
    beginOperation(Op::FetchHeaders);
}

void NewsTransport::FetchArticles(qint64 first, qint64 last)
{
    if (m_op == Op::None) {
        m_group.Articles.clear();
        if (first > last)
            std::swap(first, last);
        m_first = first;
        m_last = last;
        m_next = first;
        m_rangeDone = false;
        m_lastCode = 0;
        m_lastStatus.clear();
    }
    beginOperation(Op::FetchArticles);
}

void NewsTransport::Post(const NewsTransportArticle &article)
{
    if (m_op == Op::None)
        m_postData = dotStuffed(article.Message.Raw);
    beginOperation(Op::Post);
}

void NewsTransport::nextHeaderChunk()
{
    if (m_rangeDone || m_next > m_last) {
        finishOperation(m_lastCode ? m_lastCode : 224, m_lastStatus);
        return;
    }
    const bool separatePath = !m_fmt.hasPath && !m_hdrCommand.isEmpty();
    // no sum here may pass 2^63 - 1: article numbers can sit right below it
    const bool lastChunk = !separatePath || quint64(m_last) - quint64(m_next) < quint64(m_pathChunk);
    m_chunkLast = lastChunk ? m_last : m_next + (m_pathChunk - 1);
    const QByteArray range = QByteArray::number(m_next) + '-' + QByteArray::number(m_chunkLast);
    m_paths.clear();
    if (separatePath)
        sendCommand(m_hdrCommand + " Path " + range, Step::Hdr);
    else
        sendCommand(m_overCommand + ' ' + range, Step::Over);
}

// The chunk just asked for is done: the next one starts after it, unless it was the last.
void NewsTransport::nextRange()
{
    if (m_chunkLast >= m_last)
        m_rangeDone = true;
    else
        m_next = m_chunkLast + 1;
}

void NewsTransport::SetRawOverview(bool on)
{
    m_rawOverview = on;
    // Qt's buffer takes little of a long answer on a plain, direct connection: the rest is read
    // straight into the text (readTextDirect)
    if (m_socket)
        m_socket->setReadBufferSize(on && !m_address.tls && m_proxyHost.isEmpty() ? 64 * 1024 : 1024 * 1024);
    m_text = QByteArray();
    m_textDone = 0;
    m_textBlocks.clear();
    m_chunkPaths.reset();
    if (!on) {
        m_spareBlocks.clear();
        m_textSink = nullptr;
    }
}

QList<NewsTransport::OverviewText> NewsTransport::TakeOverviewRecords()
{
    if (m_textDone > 0)
        textRoom(qsizetype(1) << 62);   // the whole lines of the block being filled go too
    QList<OverviewText> out = std::move(m_textBlocks);
    m_textBlocks = QList<OverviewText>();
    return out;
}

void NewsTransport::ReturnOverviewBlock(QByteArray block)
{
    block.resize(0);   // keeps its memory when nobody else holds it
    if (m_spareBlocks.size() < 16 && block.capacity() >= kTextBlock)
        m_spareBlocks.append(std::move(block));
}

// Makes room for need more bytes at the end of the text block: when it has not got it, its
// whole lines go out as a full block and the unfinished line starts the next one. (A need
// beyond any block hands the whole lines over and starts a block of the usual size.)
void NewsTransport::textRoom(qsizetype need)
{
    if (m_text.capacity() - m_text.size() >= need && m_text.capacity() > 0)
        return;
    const qsizetype tail = m_text.size() - m_textDone;
    if (m_textDone == 0 && tail > 0) {
        // one unfinished line fills the block: it grows
        m_text.reserve(qMax(m_text.capacity() * 2, tail + qMin(need, kTextBlock)));
        return;
    }
    QByteArray next;
    if (!m_spareBlocks.isEmpty()) {
        next = std::move(m_spareBlocks.last());
        m_spareBlocks.removeLast();
    }
    next.reserve(qMax(kTextBlock, tail + qMin(need, kTextBlock)));
    next.resize(tail);
    if (tail > 0)
        std::memcpy(next.data(), m_text.constData() + m_textDone, size_t(tail));
    OverviewText full;
    if (m_textDone > 0) {
        m_text.resize(m_textDone);
        full = OverviewText{std::move(m_text), m_chunkPaths};
    }
    m_text = std::move(next);
    m_textDone = 0;
    if (full.text.isEmpty())
        return;
    if (m_textSink)
        m_textSink(std::move(full));
    else
        m_textBlocks.append(std::move(full));
}

// Finds the whole lines of the block from from (the start of a line) on, and the terminating
// line: its offset in the block (the text ends there) when it has come, else -1. Dot-stuffed
// lines stay as they are.
qsizetype NewsTransport::scanText(qsizetype from)
{
    const char *b = m_text.constData();
    const qsizetype size = m_text.size();
    qsizetype pos = from;
    for (;;) {
        if (pos < size && b[pos] == '.') {
            if (pos + 1 >= size)
                break;   // cannot tell yet
            if (b[pos + 1] == '\n')
                return pos;
            if (b[pos + 1] == '\r') {
                if (pos + 2 >= size)
                    break;
                if (b[pos + 2] == '\n')
                    return pos;
            }
        }
        const qsizetype q = findLfDot(b + pos, size - pos);
        if (q < 0)
            break;
        pos += q + 1;
    }
    const void *lf = pos < size ? ::memrchr(b + pos, '\n', size_t(size - pos)) : nullptr;
    m_textDone = lf ? static_cast<const char *>(lf) - b + 1 : pos;
    return -1;
}

// The answer's text ends at lineStart, where its terminating line starts. What follows that
// line is not overview text: with keepRest it goes back to the line buffer (it came straight
// from the socket); else the caller still has it. Returns how many bytes that is.
qsizetype NewsTransport::endText(qsizetype lineStart, bool keepRest)
{
    const qsizetype after = lineStart + (m_text.at(lineStart + 1) == '\r' ? 3 : 2);
    const qsizetype extra = m_text.size() - after;
    if (keepRest && extra > 0) {
        // ahead of anything not yet processed in the line buffer
        m_buf.remove(0, m_pos);
        m_pos = 0;
        m_buf.prepend(m_text.constData() + after, extra);
    }
    m_text.resize(lineStart);
    m_textDone = lineStart;
    m_inData = false;
    return extra;
}

// The end of the answer as a plain reader finds it: the server sends nothing after the terminating
// line until the next command, which is not sent before the answer has ended. So that line can
// only be the last thing received, and the text is not searched for it: its offset when the
// text ends in it, else -1. Also notes where the whole lines received since from end.
qsizetype NewsTransport::tailEnd(qsizetype from)
{
    const char *b = m_text.constData();
    const qsizetype n = m_text.size();
    // the block starts at the start of a line
    auto lineStart = [b](qsizetype i) { return i == 0 || b[i - 1] == '\n'; };
    if (n >= 2 && b[n - 1] == '\n') {
        if (b[n - 2] == '.' && lineStart(n - 2))
            return n - 2;
        if (n >= 3 && b[n - 2] == '\r' && b[n - 3] == '.' && lineStart(n - 3))
            return n - 3;
    }
    from = qMax(from, m_textDone);
    if (const void *lf = from < n ? ::memrchr(b + from, '\n', size_t(n - from)) : nullptr)
        m_textDone = static_cast<const char *>(lf) - b + 1;
    return -1;
}

// The answer's terminating line starts at lineStart of the block read straight from the socket:
// the answer ends, and what came after it is read as usual.
void NewsTransport::textEnded(qsizetype lineStart)
{
    endText(lineStart, true);
    const quint64 generation = m_generation;
    QPointer<NewsTransport> self(this);
    handleDataEnd();
    if (self && generation == m_generation && m_pos < m_buf.size())
        processBuffer();   // what came after the answer
}

// Takes answer bytes of an overview into the text block. Returns how many it took: all of them,
// or those up to and including the terminating line (the answer has then ended: m_inData is
// false and the caller goes on with the rest).
qsizetype NewsTransport::absorbText(const char *data, qsizetype size)
{
    textRoom(qMin(size, kTextBlock));
    qsizetype taken = 0;
    while (taken < size) {
        const qsizetype room = m_text.capacity() - m_text.size();
        const qsizetype n = qMin(room, size - taken);
        const qsizetype at = m_text.size();
        m_text.resize(at + n);
        std::memcpy(m_text.data() + at, data + taken, size_t(n));
        taken += n;
        const qsizetype term = scanText(m_textDone);
        if (term >= 0)
            return taken - endText(term, false);   // the bytes after the answer were not taken
        if (m_text.size() - m_textDone > m_limits.maxLineBytes)
            return taken;
        textRoom(qMin(size - taken, kTextBlock));
    }
    return taken;
}

// The line-length limit was passed: the session ends.
void NewsTransport::lineTooLong()
{
    QPointer<NewsTransport> self(this);
    const QString text = QStringLiteral("Line of more than %1 bytes from %2").arg(m_limits.maxLineBytes).arg(m_address.host);
    if (m_op != Op::None && m_state == StateBusy) {
        teardownSocket();
        m_session = false;
        m_op = Op::None;
        m_lastError = ErrorProtocol;
        notifyDebug(text);
        if (!self) return;
        setState(StateDisconnected);
        if (!self) return;
        notifyDone(0, true, text);
        if (!self) return;
        notifyDisconnected();
    } else {
        connectFailed(ErrorProtocol, 0, text);
    }
}

// How many articles the running OVER or HDR asked for (at least 1, at most 2^63 - 1).
qint64 NewsTransport::rangeCount() const
{
    if (m_chunkLast < m_next)
        return 1;
    const quint64 n = quint64(m_chunkLast) - quint64(m_next);
    return n >= quint64(std::numeric_limits<qint64>::max()) ? std::numeric_limits<qint64>::max() : qint64(n + 1);
}

// Bytes of overview text the running OVER may send: its lines at their average bound, and room
// for one line as long as any line may be.
qint64 NewsTransport::overviewTextLimit() const
{
    qint64 bytes = 0;
    if (__builtin_mul_overflow(rangeCount(), qMax<qint64>(1, m_limits.maxOverviewLineBytes), &bytes) ||
        __builtin_add_overflow(bytes, m_limits.maxLineBytes, &bytes))
        return std::numeric_limits<qint64>::max();
    return bytes;
}

QString NewsTransport::overviewTooLarge() const
{
    return QStringLiteral("more overview text than the %1 articles asked for can have").arg(rangeCount());
}

// An answer passed one of the bounds: the transaction fails, the rest of the answer goes with
// the connection, and the next operation opens a fresh one (as after Stop). What arrived before
// stays where it was put.
void NewsTransport::answerTooLarge(const QString &what)
{
    const QString text = QStringLiteral("Answer from %1 too long: %2").arg(m_address.host, what);
    teardownSocket();
    m_op = Op::None;
    m_needReconnect = true;
    m_lastError = ErrorTooLarge;
    QPointer<NewsTransport> self(this);
    notifyDebug(text);
    if (!self)
        return;
    setState(StateConnected);
    if (!self)
        return;
    notifyDone(0, true, text);
}

// ---------------------------------------------------------------- floor rate

void NewsTransport::countBytes(qint64 n)
{
    if (n > 0)
        m_rateNow += n;
}

void NewsTransport::startRateWatch()
{
    m_rateSeconds.clear();
    m_rateNow = 0;
    if (m_limits.floorBytesPerSecond > 0)
        m_rateTimer.start();
}

void NewsTransport::stopRateWatch()
{
    m_rateTimer.stop();
    m_rateSeconds.clear();
    m_rateNow = 0;
}

void NewsTransport::onRateTick()
{
    if (m_readPaused)
        return;
    const qint32 window = qMax(m_limits.floorWindowSeconds, m_timeoutSeconds);
    m_rateSeconds.append(m_rateNow);
    m_rateNow = 0;
    if (m_rateSeconds.size() > window)
        m_rateSeconds.removeFirst();
    if (m_rateSeconds.size() < window)
        return;
    qint64 sum = 0;
    for (qint64 b : std::as_const(m_rateSeconds))
        sum += b;
    if (sum < m_limits.floorBytesPerSecond * window)
        timedOut(window);
}

void NewsTransport::nextArticle()
{
    if (m_rangeDone || m_next > m_last) {
        finishOperation(m_lastCode, m_lastStatus);
        return;
    }
    m_articleNumber = m_next;
    m_articleRaw.clear();
    sendCommand("ARTICLE " + QByteArray::number(m_next), Step::Article);
    if (m_next == m_last)
        m_rangeDone = true;
    else
        ++m_next;
}

// ---------------------------------------------------------------- input

void NewsTransport::SetReadPaused(bool paused)
{
    if (m_readPaused == paused)
        return;
    m_readPaused = paused;
    // the floor rate measures the server, not a reader that holds it back
    m_rateSeconds.clear();
    m_rateNow = 0;
    if (paused) {
        m_timer.stop();
        return;
    }
    if (m_step != Step::None || m_op != Op::None || m_state == StateConnecting)
        armTimer();
    // what the socket holds already has no readyRead of its own any more
    QMetaObject::invokeMethod(this, [this] { onReadyRead(); }, Qt::QueuedConnection);
}

void NewsTransport::onReadyRead()
{
    if (!m_socket || m_readPaused)
        return;
    if (m_pos > 0 && m_pos == m_buf.size()) {
        m_buf.resize(0);  // keeps the allocation for the next read
        m_pos = 0;
    }
    // straight into our buffer, no temporary
    const qint64 avail = m_socket->bytesAvailable();
    if (avail > 0) {
        const qsizetype old = m_buf.size();
        m_buf.resize(old + avail);
        const qint64 got = m_socket->read(m_buf.data() + old, avail);
        m_buf.resize(old + qMax<qint64>(0, got));
        countBytes(got);
    }
    if (m_step != Step::None || m_op != Op::None || m_state == StateConnecting)
        armTimer();
    const quint64 generation = m_generation;
    QPointer<NewsTransport> self(this);
    processBuffer();
    if (self && generation == m_generation)
        readTextDirect();
}

bool NewsTransport::InputWaiting() const
{
    if (!m_socket)
        return false;
    if (m_socket->bytesAvailable() > 0 || m_pos < m_buf.size())
        return true;
    const qintptr fd = m_socket->socketDescriptor();
    if (fd < 0)
        return false;
    pollfd p{int(fd), POLLIN, 0};
    return ::poll(&p, 1, 0) > 0;
}

// A long overview answer on a plain, direct connection: once Qt's buffer and ours are empty, what
// the kernel holds is read straight into the text block, which saves copying the answer through
// both buffers. Nothing else reads the socket meanwhile (same thread), so the order is kept; an
// end of the connection is left for Qt to see. Reads until the kernel has nothing more, at most
// a few milliseconds, so the window stays live.
void NewsTransport::readTextDirect()
{
    if (!rawText() || m_address.tls || !m_proxyHost.isEmpty() || !m_socket || m_readPaused ||
        m_socket->bytesAvailable() > 0 || m_pos < m_buf.size())
        return;
    const qintptr fd = m_socket->socketDescriptor();
    if (fd < 0)
        return;
    QElapsedTimer slice;
    slice.start();
    constexpr qsizetype kMinRoom = 256 << 10;
    while (rawText() && slice.elapsed() < 4) {
        textRoom(kMinRoom);
        const qsizetype lineBefore = m_textDone;   // where the line the next bytes go on starts
        const qsizetype at = m_text.size();
        const qsizetype room = m_text.capacity() - at;
        m_text.resize(at + room);
        const ssize_t got = ::recv(int(fd), m_text.data() + at, size_t(room), MSG_DONTWAIT);
        m_text.resize(at + (got > 0 ? qsizetype(got) : 0));
        if (got <= 0)
            return;   // nothing more now, or the end (Qt reports it)
        countBytes(got);
        m_textBytes += got;
        qsizetype term = tailEnd(at);
        if (term < 0 && m_text.endsWith('\n')) {
            // The server stopped at a line end, not at the end: one that sends more after the end
            // in the same breath (which the protocol does not allow) has its end found all the same.
            // Servers that send whole lines pay the search the old way; others hardly ever.
            term = scanText(lineBefore);
        }
        if (term >= 0) {
            textEnded(term);
            return;
        }
        if (m_text.size() - m_textDone > m_limits.maxLineBytes) {
            lineTooLong();
            return;
        }
        if (m_textBytes > overviewTextLimit()) {
            answerTooLarge(overviewTooLarge());
            return;
        }
    }
}

void NewsTransport::processBuffer()
{
    const quint64 generation = m_generation;
    QPointer<NewsTransport> self(this);
    while (m_pos < m_buf.size()) {
        if (rawText()) {
            // an overview answer goes to the text block as it is
            const qsizetype taken = absorbText(m_buf.constData() + m_pos, m_buf.size() - m_pos);
            m_pos += taken;
            m_textBytes += taken;
            if (m_inData) {
                if (m_text.size() - m_textDone > m_limits.maxLineBytes) {
                    lineTooLong();
                    return;
                }
                if (m_textBytes > overviewTextLimit()) {
                    answerTooLarge(overviewTooLarge());
                    return;
                }
                break;
            }
            handleDataEnd();
            if (!self || generation != m_generation)
                return;
            continue;
        }
        const char *base = m_buf.constData();
        const char *start = base + m_pos;
        const qsizetype avail = m_buf.size() - m_pos;
        const char *nl = static_cast<const char *>(std::memchr(start, '\n', size_t(avail)));
        if (!nl) {
            if (avail > m_limits.maxLineBytes)
                lineTooLong();
            break;
        }
        qsizetype len = nl - start;
        m_pos += len + 1;
        if (len > 0 && start[len - 1] == '\r')
            --len;
        if (m_inData) {
            if (len == 1 && start[0] == '.') {
                m_inData = false;
                handleDataEnd();
            } else if (len > 0 && start[0] == '.') {
                handleData(start + 1, len - 1);
            } else {
                handleData(start, len);
            }
        } else {
            handleStatus(QByteArray(start, len));
        }
        if (!self || generation != m_generation)
            return;
    }
    if (m_pos == m_buf.size()) {
        m_buf.resize(0);
        m_pos = 0;
    } else if (m_pos > 64 * 1024) {
        m_buf.remove(0, m_pos);
        m_pos = 0;
    }
}

void NewsTransport::beginData()
{
    m_inData = true;
    m_answerLines = 0;
    m_textBytes = 0;
    if (m_sink)
        m_sink->GetReadStream(this, m_socket);
    emit GetReadStream(this, m_socket);
}

void NewsTransport::handleStatus(const QByteArray &line)
{
    const quint64 generation = m_generation;
    QPointer<NewsTransport> self(this);
    // shown as it is in status texts, boxes and on a terminal: no control characters
    const QString text = nd::safeText(textFromBytes(line));
    const qint32 code = statusCode(line);
    if (line.toUpper().contains("LIMIT EXCEEDED"))
        m_limitExceeded = true;
    m_lastCode = code;
    m_lastStatus = text;
    notifyDebug(text);
    if (!self || generation != m_generation)
        return;  // a handler closed the session

    switch (m_step) {
    case Step::Greeting:
    case Step::Capabilities:
    case Step::StartTls:
    case Step::TlsHandshake:
    case Step::ModeReader:
    case Step::AuthUser:
    case Step::AuthPass:
        startHandshakeStep(code, text);
        return;
    case Step::Reselect:
        if (code == 211) {
            runOperation();
        } else {
            m_groupSelected = false;
            failOperation(code, text, 0);
        }
        return;
    case Step::List:
    case Step::ListPlain:
        listStatus(code, text);
        return;
    case Step::Group:
        groupStatus(line, code, text);
        return;
    case Step::OverFmt:
        overviewFormatStatus(code);
        return;
    case Step::Hdr:
        headerStatus(code, text);
        return;
    case Step::Over:
        overviewStatus(code, text);
        return;
    case Step::Article:
        if (code == 220) {
            beginData();
        } else if (code == 423 || code == 430) {
            nextArticle();  // gone: not an error
        } else {
            failOperation(code, text, 0);
        }
        return;
    case Step::PostStart:
    case Step::PostData:
        postStatus(code, text);
        return;
    case Step::Quit:
        teardownSocket();
        m_op = Op::None;
        setState(StateDisconnected);
        if (self)
            notifyDisconnected();
        return;
    case Step::None:
        return;  // unsolicited line (e.g. 400 before closing an idle session)
    }
}

void NewsTransport::listStatus(qint32 code, const QString &text)
{
    if (code == 215) {
        beginData();
    } else if (m_step == Step::List && (code == 500 || code == 501)) {
        sendCommand("LIST", Step::ListPlain);
    } else {
        failOperation(code, text, 0);
    }
}

void NewsTransport::groupStatus(const QByteArray &line, qint32 code, const QString &text)
{
    if (code != 211) {
        failOperation(code, text, 0);
        return;
    }
    const QList<QByteArray> f = line.simplified().split(' ');
    m_group.Name = m_pendingGroup;
    m_group.Articles.clear();
    m_group.Estimated = f.size() > 1 ? f.at(1).toLongLong() : 0;
    m_group.First = f.size() > 2 ? f.at(2).toLongLong() : 0;
    m_group.Last = f.size() > 3 ? f.at(3).toLongLong() : 0;
    m_groupSelected = true;
    finishOperation(code, text);
}

void NewsTransport::overviewFormatStatus(qint32 code)
{
    m_fmtLines.clear();
    if (code == 215) {
        beginData();
    } else {
        m_fmt = OverviewFormat::fromLines({});
        m_fmtKnown = true;
        nextHeaderChunk();
    }
}

void NewsTransport::headerStatus(qint32 code, const QString &text)
{
    if (code == 225 || code == 221) {
        beginData();
    } else if (code == 500 || code == 501) {
        // try the older command, else list without the Path column
        m_hdrCommand = (m_hdrCommand == "HDR") ? QByteArray("XHDR") : QByteArray();
        if (m_hdrCommand.isEmpty())
            m_chunkLast = m_last;
        const QByteArray range =
            QByteArray::number(m_next) + '-' + QByteArray::number(m_chunkLast);
        if (!m_hdrCommand.isEmpty())
            sendCommand(m_hdrCommand + " Path " + range, Step::Hdr);
        else
            sendCommand(m_overCommand + ' ' + range, Step::Over);
    } else if (code == 480 || code == 412) {
        failOperation(code, text, 0);
    } else {
        // no Path for this range (423 and the like): the rows still come
        sendCommand(m_overCommand + ' ' + QByteArray::number(m_next) + '-' +
                        QByteArray::number(m_chunkLast),
                    Step::Over);
    }
}

void NewsTransport::overviewStatus(qint32 code, const QString &text)
{
    if (code == 224) {
        beginData();
    } else if (code == 423 || code == 420) {
        nextRange();  // nothing in this range
        nextHeaderChunk();
    } else if ((code == 500 || code == 501) && m_overCommand == "OVER") {
        m_overCommand = "XOVER";
        sendCommand(m_overCommand + ' ' + QByteArray::number(m_next) + '-' +
                        QByteArray::number(m_chunkLast),
                    Step::Over);
    } else {
        failOperation(code, text, 0);
    }
}

void NewsTransport::postStatus(qint32 code, const QString &text)
{
    if (m_step == Step::PostData) {
        if (code == 240)
            finishOperation(code, text);
        else
            failOperation(code, text, 0);
        return;
    }
    if (code != 340) {
        failOperation(code, text, 0);
        return;
    }
    m_step = Step::PostData;
    if (m_socket)
        m_socket->write(m_postData);
    armTimer();
    m_postData.clear();
}

void NewsTransport::handleData(const char *data, qsizetype size)
{
    switch (m_step) {
    case Step::Over: {
        if (++m_answerLines > rangeCount()) {
            answerTooLarge(QStringLiteral("more overview lines than the %1 articles asked for").arg(rangeCount()));
            return;
        }
        NewsTransportArticle article;
        if (!parseOverviewLine(data, size, m_fmt, article))
            return;
        if (!m_fmt.hasPath) {
            const auto it = m_paths.constFind(article.Number);
            if (it != m_paths.constEnd())
                article.Message.Headers.append(NewsTransportHeader{QStringLiteral("Path"), QString::fromUtf8(it.value())});
        }
        m_group.Articles.append(std::move(article));
        return;
    }
    case Step::Hdr: {
        if (++m_answerLines > rangeCount()) {
            answerTooLarge(QStringLiteral("more header lines than the %1 articles asked for").arg(rangeCount()));
            return;
        }
        const char *sp = static_cast<const char *>(std::memchr(data, ' ', size_t(size)));
        if (!sp)
            return;
        bool ok = false;
        const qint64 n = QByteArray(data, sp - data).toLongLong(&ok);
        const char *v = sp + 1;
        const qsizetype vlen = size - (v - data);
        if (ok && vlen > 0 && !(vlen == 6 && std::memcmp(v, "(none)", 6) == 0))
            m_paths.insert(n, textFromBytes(v, vlen).toUtf8());
        return;
    }
    case Step::Article:
        if (m_articleRaw.size() + size + 2 > m_limits.maxArticleBytes) {
            answerTooLarge(QStringLiteral("article %1 is larger than %2 MiB")
                               .arg(m_articleNumber).arg(m_limits.maxArticleBytes >> 20));
            return;
        }
        m_articleRaw.append(data, size);
        m_articleRaw.append("\r\n", 2);
        return;
    case Step::List:
    case Step::ListPlain: {
        // name last first flag
        if (++m_answerLines > m_limits.maxGroups) {
            answerTooLarge(QStringLiteral("more than %1 groups").arg(m_limits.maxGroups));
            return;
        }
        const QList<QByteArray> f = QByteArray(data, size).simplified().split(' ');
        if (f.isEmpty() || f.at(0).isEmpty())
            return;
        NewsTransportGroup g;
        g.Name = textFromBytes(f.at(0));
        g.Last = f.size() > 1 ? f.at(1).toLongLong() : 0;
        g.First = f.size() > 2 ? f.at(2).toLongLong() : 0;
        g.Estimated = (g.Last >= g.First && g.Last > 0) ? g.Last - g.First + 1 : 0;
        m_groupList.Groups.append(std::move(g));
        return;
    }
    case Step::Capabilities:
        if (++m_answerLines > m_limits.maxFormatLines) {
            connectFailed(ErrorTooLarge, 0, QStringLiteral("Answer from %1 too long: more than %2 capabilities")
                                                .arg(m_address.host).arg(m_limits.maxFormatLines));
            return;
        }
        if (QByteArray(data, size).trimmed().toUpper() == "STARTTLS")
            m_offersStartTls = true;
        return;
    case Step::OverFmt:
        if (++m_answerLines > m_limits.maxFormatLines) {
            answerTooLarge(QStringLiteral("more than %1 overview fields").arg(m_limits.maxFormatLines));
            return;
        }
        m_fmtLines.append(QByteArray(data, size));
        return;
    default:
        return;  // data nobody asked for
    }
}

void NewsTransport::handleDataEnd()
{
    switch (m_step) {
    case Step::Capabilities:
        if (m_offersStartTls && m_socket && !m_socket->isEncrypted())
            sendCommand("STARTTLS", Step::StartTls);
        else
            sendModeReaderOrLogin();
        return;
    case Step::List:
    case Step::ListPlain:
        finishOperation(m_lastCode, m_lastStatus);
        return;
    case Step::OverFmt:
        m_fmt = OverviewFormat::fromLines(m_fmtLines);
        m_fmtLines.clear();
        m_fmtKnown = true;
        nextHeaderChunk();
        return;
    case Step::Hdr:
        if (m_rawOverview) {
            // the range's Paths go with its text
            m_chunkPaths = std::make_shared<const QHash<qint64, QByteArray>>(std::move(m_paths));
            m_paths.clear();
        }
        sendCommand(m_overCommand + ' ' + QByteArray::number(m_next) + '-' +
                        QByteArray::number(m_chunkLast),
                    Step::Over);
        return;
    case Step::Over:
        if (m_rawOverview && m_chunkPaths) {
            // the next range has Paths of its own: this one's text goes out on its own
            if (m_textDone > 0)
                textRoom(qsizetype(1) << 62);
            m_chunkPaths.reset();
        }
        m_paths.clear();
        nextRange();
        nextHeaderChunk();
        return;
    case Step::Article: {
        NewsTransportArticle article;
        article.Number = m_articleNumber;
        article.Message.Raw = std::move(m_articleRaw);
        m_articleRaw = QByteArray();
        if (!parseArticle(article.Message, m_limits.maxMimeParts)) {
            answerTooLarge(QStringLiteral("article %1 has more than %2 MIME parts")
                               .arg(m_articleNumber).arg(m_limits.maxMimeParts));
            return;
        }
        m_group.Articles.append(std::move(article));
        nextArticle();
        return;
    }
    default:
        return;
    }
}
