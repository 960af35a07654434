#include "news/transport/NewsTransport.h"

#include "news/transport/MessageParser.h"

#include <QCryptographicHash>
#include <QNetworkProxy>
#include <QSslCertificate>
#include <QSslConfiguration>

// ------------------------------------------------------------------ small helpers

QString NewsTransportMessage::header(const QString &name) const
{
    for (qsizetype i = Headers.size() - 1; i >= 0; --i)
        if (Headers[i].Name == name)
            return Headers[i].value;
    return QString();
}

QList<NewsTransportArticle> NewsTransportGroup::TakeArticles()
{
    QList<NewsTransportArticle> out;
    out.swap(Articles);
    return out;
}

QString textFromBytes(const char *data, qsizetype size)
{
    // ASCII is the common case and needs no check
    bool ascii = true;
    for (qsizetype i = 0; i < size; ++i)
        if (static_cast<unsigned char>(data[i]) >= 0x80) {
            ascii = false;
            break;
        }
    if (ascii)
        return QString::fromLatin1(data, size);
    if (QUtf8StringView(data, size).isValidUtf8())
        return QString::fromUtf8(data, size);
    return QString::fromLatin1(data, size);
}

QString textFromBytes(const QByteArray &bytes)
{
    return textFromBytes(bytes.constData(), bytes.size());
}

static int statusCode(const QByteArray &line)
{
    if (line.size() < 3)
        return 0;
    int code = 0;
    for (int i = 0; i < 3; ++i) {
        const char c = line[i];
        if (c < '0' || c > '9')
            return 0;
        code = code * 10 + (c - '0');
    }
    return code;
}

static qint64 toInt64(const char *p, qsizetype n)
{
    qint64 v = 0;
    qsizetype i = 0;
    while (i < n && p[i] == ' ')
        ++i;
    for (; i < n && p[i] >= '0' && p[i] <= '9'; ++i)
        v = v * 10 + (p[i] - '0');
    return v;
}

// ------------------------------------------------------------------ life cycle

NewsTransport::NewsTransport(QObject *parent)
    : QObject(parent)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &NewsTransport::onInactivity);
}

NewsTransport::~NewsTransport()
{
    m_sink = nullptr;
    if (m_sock) {
        m_sock->disconnect(this);
        m_sock->abort();
    }
}

QString NewsTransport::StateText() const
{
    switch (m_state) {
    case StateConnected:
        return QStringLiteral("Connected to NNTP Server");
    case StateConnecting:
        return QStringLiteral("Connecting to NNTP Server");
    case StateDisconnected:
        break;
    }
    return QStringLiteral("Disconnected from NNTP Server");
}

void NewsTransport::setState(State s)
{
    if (s == m_state)
        return;
    const State old = m_state;
    m_state = s;
    if (m_sink)
        m_sink->StateChanged(this, old, s);
    emit StateChanged(this, old, s);
}

void NewsTransport::emitDebug(const QString &line)
{
    if (m_sink)
        m_sink->Debug(this, line);
    emit Debug(this, line);
}

void NewsTransport::emitDone(qint32 value, bool error, const QString &text)
{
    if (m_sink)
        m_sink->Done(this, value, error, text);
    emit Done(this, value, error, text);
}

void NewsTransport::armTimer()
{
    m_timer.start(m_timeoutSecs * 1000);
}

void NewsTransport::startTransaction()
{
    m_lastError = 0;
    m_busy = true;
    m_aborted = false;
}

void NewsTransport::finishTransaction(qint32 value)
{
    m_busy = false;
    if (!m_waiting)
        m_timer.stop();
    emitDone(value, false, QString());
}

void NewsTransport::fail(qint32 code, const QString &reason)
{
    if (!reason.isEmpty())
        emitDebug(reason);
    m_lastError = code ? code : -1;
    m_queue.clear();
    m_timer.stop();
    const bool wasConnecting = m_state == StateConnecting || m_handshaking;
    if (wasConnecting) {
        m_handshaking = false;
        if (m_sock) {
            m_sock->disconnect(this);
            m_sock->abort();
            m_sock->deleteLater();
            m_sock = nullptr;
        }
        m_linkUp = false;
        m_waiting = false;
        m_inData = false;
        setState(StateDisconnected);
    }
    m_busy = false;
    emitDone(code, true, reason);
}

// ------------------------------------------------------------------ socket

void NewsTransport::openSocket()
{
    if (m_sock) {
        m_sock->disconnect(this);
        m_sock->abort();
        m_sock->deleteLater();
    }
    m_buf.clear();
    m_bufPos = 0;
    m_inData = false;
    m_waiting = false;
    m_queue.clear();
    m_selectedName.clear();
    m_certRefused = false;
    m_sock = new QSslSocket(this);
    if (!m_proxyHost.isEmpty())
        m_sock->setProxy(QNetworkProxy(QNetworkProxy::Socks5Proxy, m_proxyHost, quint16(m_proxyPort ? m_proxyPort : 1080)));
    else
        m_sock->setProxy(QNetworkProxy::NoProxy);
    m_sock->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_sock->setReadBufferSize(0);
    connect(m_sock, &QSslSocket::readyRead, this, &NewsTransport::onReadyRead);
    connect(m_sock, &QSslSocket::disconnected, this, &NewsTransport::onSocketDisconnected);
    connect(m_sock, &QSslSocket::errorOccurred, this, &NewsTransport::onSocketError);
    connect(m_sock, &QSslSocket::sslErrors, this, &NewsTransport::onSslErrors);
    armTimer();
    if (m_addr.tls)
        m_sock->connectToHostEncrypted(m_addr.host, m_addr.port);
    else
        m_sock->connectToHost(m_addr.host, m_addr.port);
}

void NewsTransport::onSslErrors(const QList<QSslError> &errors)
{
    const QSslCertificate cert = m_sock->peerCertificate();
    const QString fp = QString::fromLatin1(cert.digest(QCryptographicHash::Sha256).toHex(':').toUpper());
    QStringList reasons;
    for (const QSslError &e : errors)
        reasons << e.errorString();
    const QString reason = reasons.join(QStringLiteral("; "));
    m_timer.stop();   // the user may take a while to answer
    QPointer<NewsTransport> self(this);
    QPointer<QSslSocket> sock(m_sock);
    const bool ok = m_certCheck && m_certCheck(m_addr.host, fp, reason);
    if (!self || !sock || sock != m_sock)
        return;
    armTimer();
    if (ok) {
        m_sock->ignoreSslErrors(errors);
    } else {
        m_certRefused = true;
        emitDebug(QStringLiteral("TLS certificate of %1 not trusted: %2").arg(m_addr.host, reason));
    }
}

void NewsTransport::onSocketError(QAbstractSocket::SocketError e)
{
    if (!m_sock)
        return;
    if (e == QAbstractSocket::RemoteHostClosedError)
        return;   // handled as a disconnect
    const QString what = m_sock->errorString();
    if (m_state == StateConnecting || m_handshaking) {
        fail(1, m_certRefused ? QStringLiteral("Connection refused: the server's certificate was not accepted")
                              : QStringLiteral("Unable to connect to %1: %2").arg(m_addr.host, what));
        return;
    }
    onSocketDisconnected();
}

void NewsTransport::onSocketDisconnected()
{
    QSslSocket *s = m_sock;
    if (!s)
        return;
    s->disconnect(this);
    s->deleteLater();
    m_sock = nullptr;
    m_linkUp = false;
    m_selectedName.clear();
    const bool hadStep = m_waiting;
    m_waiting = false;
    m_inData = false;
    m_timer.stop();
    if (m_quitting) {
        m_quitting = false;
        setState(StateDisconnected);
        if (m_sink)
            m_sink->Disconnected(this);
        emit Disconnected(this);
        return;
    }
    if (m_state == StateConnecting || m_handshaking) {
        fail(1, QStringLiteral("Connection closed by %1 during login").arg(m_addr.host));
        return;
    }
    if (m_busy && !m_aborted) {
        // dropped in the middle of a transaction: that is an error the user must see
        m_queue.clear();
        setState(StateDisconnected);
        fail(hadStep ? 1 : 1, QStringLiteral("Disconnected from %1: connection lost").arg(m_addr.host));
        return;
    }
    // an idle session the server closed: the next operation reconnects by itself
}

void NewsTransport::onInactivity()
{
    if (m_quitting) {
        // no goodbye from the server: close anyway
        if (m_sock)
            m_sock->abort();
        onSocketDisconnected();
        return;
    }
    if (!(m_waiting || m_state == StateConnecting || m_handshaking || m_busy))
        return;
    const QString reason = QStringLiteral("Time-out: no answer from %1 within %2 seconds").arg(m_addr.host).arg(m_timeoutSecs);
    if (m_state == StateConnecting || m_handshaking) {
        fail(0, reason);
        return;
    }
    // the link can't be trusted any more; the next operation reconnects
    if (m_sock) {
        m_sock->disconnect(this);
        m_sock->abort();
        m_sock->deleteLater();
        m_sock = nullptr;
    }
    m_linkUp = false;
    m_waiting = false;
    m_inData = false;
    fail(0, reason);
}

// ------------------------------------------------------------------ protocol engine

void NewsTransport::send(Step step)
{
    m_queue.append(std::move(step));
    if (m_waiting || !m_sock)
        return;
    m_current = m_queue.takeFirst();
    m_waiting = true;
    if (!m_current.command.isEmpty()) {
        QByteArray out = m_current.command;
        out += "\r\n";
        m_sock->write(out);
    }
    armTimer();
}

void NewsTransport::onReadyRead()
{
    if (!m_sock)
        return;
    if (m_bufPos > 0 && m_bufPos == m_buf.size()) {
        m_buf.clear();
        m_bufPos = 0;
    }
    m_buf.append(m_sock->readAll());
    if (m_waiting)
        armTimer();
    processBuffer();
}

void NewsTransport::processBuffer()
{
    while (m_sock || m_bufPos < m_buf.size()) {
        const char *base = m_buf.constData();
        const qsizetype size = m_buf.size();
        const char *nl = static_cast<const char *>(memchr(base + m_bufPos, '\n', size_t(size - m_bufPos)));
        if (!nl)
            break;
        const qsizetype start = m_bufPos;
        qsizetype end = nl - base;
        m_bufPos = end + 1;
        if (end > start && base[end - 1] == '\r')
            --end;
        const char *line = base + start;
        qsizetype len = end - start;

        if (m_inData) {
            if (len == 1 && line[0] == '.') {
                m_inData = false;
                m_waiting = false;
                Step done = std::move(m_current);
                if (!m_aborted && done.onDataEnd)
                    done.onDataEnd();
            } else {
                if (len >= 2 && line[0] == '.' && line[1] == '.') {
                    ++line;
                    --len;
                }
                if (!m_aborted && m_current.onData)
                    m_current.onData(line, len);
            }
        } else {
            const QByteArray status(line, len);
            const QString text = textFromBytes(status);
            if (status.toUpper().contains("LIMIT EXCEEDED"))
                m_limitExceeded = true;
            emitDebug(text);
            if (!m_waiting)
                continue;   // a line nobody asked for (e.g. a goodbye before closing)
            const int code = statusCode(status);
            if (m_current.multiline && m_current.multiline(code)) {
                m_inData = true;
                if (m_current.onStatus)
                    m_current.onStatus(code, status);
            } else {
                m_waiting = false;
                Step done = std::move(m_current);
                if (done.onStatus)
                    done.onStatus(code, status);
            }
        }
        // compact now and then so a long answer does not keep every byte
        if (m_bufPos > (1 << 20)) {
            m_buf.remove(0, m_bufPos);
            m_bufPos = 0;
        }
        if (!m_waiting && !m_inData && !m_queue.isEmpty() && m_sock) {
            m_current = m_queue.takeFirst();
            m_waiting = true;
            if (!m_current.command.isEmpty())
                m_sock->write(m_current.command + "\r\n");
            armTimer();
        }
    }
    if (m_bufPos == m_buf.size()) {
        m_buf.clear();
        m_bufPos = 0;
    }
    if (!m_waiting && !m_busy && m_state == StateConnected && !m_quitting)
        m_timer.stop();
}

void NewsTransport::handshake(std::function<void()> then)
{
    m_handshaking = true;
    Step greet;
    greet.onStatus = [this, then](int code, const QByteArray &) {
        if (code != 200 && code != 201) {
            fail(code, QString());
            return;
        }
        m_postingAllowed = code == 200;
        Step mode;
        mode.command = "MODE READER";
        mode.onStatus = [this, then](int code, const QByteArray &) {
            if (code == 200)
                m_postingAllowed = true;
            else if (code == 201)
                m_postingAllowed = false;
            auto ready = [this, then] {
                m_handshaking = false;
                m_linkUp = true;
                then();
            };
            if (m_user.isEmpty()) {
                ready();
                return;
            }
            Step user;
            user.command = "AUTHINFO USER " + m_user.toUtf8();
            user.secret = true;
            user.onStatus = [this, ready](int code, const QByteArray &) {
                if (code == 281) {
                    ready();
                    return;
                }
                if (code != 381) {
                    fail(code, QString());
                    return;
                }
                Step pass;
                pass.command = "AUTHINFO PASS " + m_password.toUtf8();
                pass.secret = true;
                pass.onStatus = [this, ready](int code, const QByteArray &) {
                    if (code != 281) {
                        fail(code, QString());
                        return;
                    }
                    ready();
                };
                send(std::move(pass));
            };
            send(std::move(user));
        };
        send(std::move(mode));
    };
    send(std::move(greet));
}

void NewsTransport::Connect(const QString &host, const QString &user, const QString &password)
{
    m_lastError = 0;
    m_limitExceeded = false;
    m_user = user;
    m_password = password;
    m_addr = parseServerAddress(host);
    if (m_host.isEmpty())
        m_host = host;
    m_overFormatKnown = 0;
    if (!m_addr.valid) {
        setState(StateConnecting);
        fail(1, QStringLiteral("Invalid server address: %1").arg(host));
        return;
    }
    startTransaction();
    setState(StateConnecting);
    openSocket();
    handshake([this] {
        m_busy = false;
        m_timer.stop();
        setState(StateConnected);
        if (m_sink)
            m_sink->Connected(this);
        emit Connected(this);
    });
}

void NewsTransport::ensureSession(std::function<void()> then)
{
    if (m_state != StateConnected) {
        fail(1, QStringLiteral("Not connected to a news server"));
        return;
    }
    if (m_linkUp && m_sock) {
        then();
        return;
    }
    // the server closed the session, or a stopped transaction closed it: log in again quietly
    openSocket();
    handshake(std::move(then));
}

// ------------------------------------------------------------------ operations

void NewsTransport::RequestGroupList()
{
    startTransaction();
    m_groups.Groups.clear();
    ensureSession([this] {
        auto parse = [this](const char *p, qsizetype n) {
            // name last first flag
            const char *end = p + n;
            const char *sp1 = static_cast<const char *>(memchr(p, ' ', size_t(n)));
            if (!sp1)
                return;
            NewsTransportGroup g;
            g.Name = textFromBytes(p, sp1 - p);
            const char *q = sp1 + 1;
            const char *sp2 = static_cast<const char *>(memchr(q, ' ', size_t(end - q)));
            g.Last = toInt64(q, (sp2 ? sp2 : end) - q);
            if (sp2) {
                const char *r = sp2 + 1;
                const char *sp3 = static_cast<const char *>(memchr(r, ' ', size_t(end - r)));
                g.First = toInt64(r, (sp3 ? sp3 : end) - r);
            }
            g.Estimated = g.Last >= g.First ? g.Last - g.First + 1 : 0;
            m_groups.Groups.append(std::move(g));
        };
        Step list;
        list.command = "LIST ACTIVE";
        list.multiline = [](int c) { return c == 215; };
        list.onData = parse;
        list.onDataEnd = [this] { finishTransaction(215); };
        list.onStatus = [this, parse](int code, const QByteArray &) {
            if (code == 215)
                return;
            if (code == 500 || code == 501) {
                Step plain;   // servers from before LIST ACTIVE
                plain.command = "LIST";
                plain.multiline = [](int c) { return c == 215; };
                plain.onData = parse;
                plain.onDataEnd = [this] { finishTransaction(215); };
                plain.onStatus = [this](int code, const QByteArray &) {
                    if (code != 215)
                        fail(code, QString());
                };
                send(std::move(plain));
                return;
            }
            fail(code, QString());
        };
        send(std::move(list));
    });
}

void NewsTransport::SelectGroup(const QString &name)
{
    startTransaction();
    m_group = NewsTransportGroup();
    m_group.Name = name;
    ensureSession([this, name] {
        Step g;
        g.command = "GROUP " + name.toUtf8();
        g.onStatus = [this, name](int code, const QByteArray &line) {
            if (code != 211) {
                fail(code, QString());
                return;
            }
            const QList<QByteArray> f = line.split(' ');
            m_group.Estimated = f.value(1).toLongLong();
            m_group.First = f.value(2).toLongLong();
            m_group.Last = f.value(3).toLongLong();
            m_selectedName = name;
            finishTransaction(211);
        };
        send(std::move(g));
    });
}

void NewsTransport::FetchHeaders(qint64 first, qint64 last)
{
    startTransaction();
    m_group.Articles.clear();
    m_paths.clear();
    m_fetchFirst = first;
    m_fetchLast = last;
    ensureSession([this] {
        auto afterGroup = [this] {
            if (m_overFormatKnown != 0) {
                startHeaderFetch();
                return;
            }
            Step fmt;
            fmt.command = "LIST OVERVIEW.FMT";
            fmt.multiline = [](int c) { return c == 215; };
            auto fields = std::make_shared<QStringList>();
            fmt.onData = [fields](const char *p, qsizetype n) { *fields << QString::fromLatin1(p, n).trimmed(); };
            fmt.onDataEnd = [this, fields] {
                // the first seven fields are the standard ones; keep the names of the rest
                m_overExtra.clear();
                m_overFormatKnown = -1;
                for (int i = 7; i < fields->size(); ++i) {
                    QString f = fields->at(i);
                    const bool full = f.endsWith(QLatin1String(":full"), Qt::CaseInsensitive);
                    f = f.section(QLatin1Char(':'), 0, 0);
                    m_overExtra << (full ? f + QLatin1Char('!') : f);
                    if (f.compare(QLatin1String("Path"), Qt::CaseInsensitive) == 0)
                        m_overFormatKnown = 1;
                }
                startHeaderFetch();
            };
            fmt.onStatus = [this](int code, const QByteArray &) {
                if (code == 215)
                    return;
                m_overExtra.clear();
                m_overFormatKnown = -1;
                startHeaderFetch();
            };
            send(std::move(fmt));
        };
        if (m_selectedName == m_group.Name || m_group.Name.isEmpty()) {
            afterGroup();
            return;
        }
        Step g;
        g.command = "GROUP " + m_group.Name.toUtf8();
        g.onStatus = [this, afterGroup](int code, const QByteArray &) {
            if (code != 211) {
                fail(code, QString());
                return;
            }
            m_selectedName = m_group.Name;
            afterGroup();
        };
        send(std::move(g));
    });
}

void NewsTransport::startHeaderFetch()
{
    const QByteArray range = QByteArray::number(m_fetchFirst) + '-' + QByteArray::number(m_fetchLast);
    if (m_overFormatKnown == 1) {
        startOver();
        return;
    }
    // the overview lacks Path: read it for the range first
    auto onPath = [this](const char *p, qsizetype n) {
        const char *sp = static_cast<const char *>(memchr(p, ' ', size_t(n)));
        if (!sp)
            return;
        const qint64 num = toInt64(p, sp - p);
        m_paths.insert(num, textFromBytes(sp + 1, n - (sp + 1 - p)));
    };
    Step hdr;
    hdr.command = "HDR Path " + range;
    hdr.multiline = [](int c) { return c == 225; };
    hdr.onData = onPath;
    hdr.onDataEnd = [this] { startOver(); };
    hdr.onStatus = [this, range, onPath](int code, const QByteArray &) {
        if (code == 225)
            return;
        if (code == 423 || code == 420) {
            startOver();
            return;
        }
        Step x;
        x.command = "XHDR Path " + range;
        x.multiline = [](int c) { return c == 221; };
        x.onData = onPath;
        x.onDataEnd = [this] { startOver(); };
        x.onStatus = [this](int code, const QByteArray &) {
            if (code != 221)
                startOver();   // no Path to be had: the listing goes on without it
        };
        send(std::move(x));
    };
    send(std::move(hdr));
}

void NewsTransport::startOver()
{
    static const QString names[7] = {QStringLiteral("Subject"), QStringLiteral("From"), QStringLiteral("Date"),
                                      QStringLiteral("Message-ID"), QStringLiteral("References"),
                                      QStringLiteral("Bytes"), QStringLiteral("Lines")};
    const QByteArray range = QByteArray::number(m_fetchFirst) + '-' + QByteArray::number(m_fetchLast);
    auto onLine = [this](const char *p, qsizetype n) {
        const char *end = p + n;
        const char *tab = static_cast<const char *>(memchr(p, '\t', size_t(n)));
        if (!tab)
            return;
        NewsTransportArticle a;
        a.Number = toInt64(p, tab - p);
        QList<NewsTransportHeader> &h = a.Message.Headers;
        h.reserve(8 + m_overExtra.size());
        const char *q = tab + 1;
        int field = 0;
        bool hasPath = false;
        while (q <= end) {
            const char *t = static_cast<const char *>(memchr(q, '\t', size_t(end - q)));
            const char *fe = t ? t : end;
            if (field < 7) {
                h.append({names[field], textFromBytes(q, fe - q)});
            } else if (field - 7 < m_overExtra.size()) {
                QString name = m_overExtra[field - 7];
                const char *v = q;
                qsizetype vn = fe - q;
                if (name.endsWith(QLatin1Char('!'))) {
                    // "Name: value" fields carry their own name
                    name.chop(1);
                    const char *colon = static_cast<const char *>(memchr(v, ':', size_t(vn)));
                    if (colon) {
                        vn -= (colon + 1 - v);
                        v = colon + 1;
                        while (vn > 0 && *v == ' ') {
                            ++v;
                            --vn;
                        }
                    }
                }
                if (name.compare(QLatin1String("Path"), Qt::CaseInsensitive) == 0) {
                    name = QStringLiteral("Path");
                    hasPath = true;
                }
                h.append({name, textFromBytes(v, vn)});
            }
            ++field;
            if (!t)
                break;
            q = t + 1;
        }
        if (!hasPath) {
            auto it = m_paths.find(a.Number);
            if (it != m_paths.end()) {
                h.append({QStringLiteral("Path"), it.value()});
                m_paths.erase(it);
            }
        }
        m_group.Articles.append(std::move(a));
    };
    Step over;
    over.command = "OVER " + range;
    over.multiline = [](int c) { return c == 224; };
    over.onData = onLine;
    over.onDataEnd = [this] {
        m_paths.clear();
        finishTransaction(224);
    };
    over.onStatus = [this, range, onLine](int code, const QByteArray &) {
        if (code == 224)
            return;
        if (code == 423 || code == 420) {   // nothing in that range
            finishTransaction(code);
            return;
        }
        if (code != 500 && code != 501) {
            fail(code, QString());
            return;
        }
        Step x;
        x.command = "XOVER " + range;
        x.multiline = [](int c) { return c == 224; };
        x.onData = onLine;
        x.onDataEnd = [this] {
            m_paths.clear();
            finishTransaction(224);
        };
        x.onStatus = [this](int code, const QByteArray &) {
            if (code == 224)
                return;
            if (code == 423 || code == 420)
                finishTransaction(code);
            else
                fail(code, QString());
        };
        send(std::move(x));
    };
    send(std::move(over));
}

void NewsTransport::FetchArticles(qint64 first, qint64 last)
{
    startTransaction();
    m_group.Articles.clear();
    m_fetchFirst = first;
    m_fetchLast = last;
    m_fetchNext = first;
    ensureSession([this] {
        if (m_selectedName == m_group.Name || m_group.Name.isEmpty()) {
            fetchNextArticle();
            return;
        }
        Step g;
        g.command = "GROUP " + m_group.Name.toUtf8();
        g.onStatus = [this](int code, const QByteArray &) {
            if (code != 211) {
                fail(code, QString());
                return;
            }
            m_selectedName = m_group.Name;
            fetchNextArticle();
        };
        send(std::move(g));
    });
}

void NewsTransport::fetchNextArticle()
{
    if (m_fetchNext > m_fetchLast) {
        finishTransaction(220);
        return;
    }
    const qint64 n = m_fetchNext++;
    m_article.clear();
    Step a;
    a.command = "ARTICLE " + QByteArray::number(n);
    a.multiline = [](int c) { return c == 220; };
    a.onData = [this](const char *p, qsizetype len) {
        m_article.append(p, len);
        m_article.append("\r\n", 2);
    };
    a.onDataEnd = [this, n] {
        NewsTransportArticle art;
        art.Number = n;
        art.Message = parseArticle(m_article);
        m_article.clear();
        m_group.Articles.append(std::move(art));
        fetchNextArticle();
    };
    a.onStatus = [this](int code, const QByteArray &) {
        if (code == 220)
            return;
        if (code == 423 || code == 430) {   // gone from the server: not an error
            fetchNextArticle();
            return;
        }
        fail(code, QString());
    };
    send(std::move(a));
}

static QByteArray dotStuffed(const QByteArray &raw)
{
    QByteArray out;
    out.reserve(raw.size() + raw.size() / 40 + 8);
    qsizetype start = 0;
    const qsizetype n = raw.size();
    while (start < n) {
        qsizetype end = raw.indexOf('\n', start);
        const bool last = end < 0;
        if (last)
            end = n;
        qsizetype stop = end;
        if (stop > start && raw[stop - 1] == '\r')
            --stop;
        if (stop > start && raw[start] == '.')
            out += '.';
        out.append(raw.constData() + start, stop - start);
        out += "\r\n";
        start = end + 1;
    }
    out += '.';
    return out;
}

void NewsTransport::Post(const NewsTransportArticle &article)
{
    startTransaction();
    const QByteArray body = dotStuffed(article.Message.Raw);
    ensureSession([this, body] {
        Step post;
        post.command = "POST";
        post.onStatus = [this, body](int code, const QByteArray &) {
            if (code != 340) {
                fail(code, QString());
                return;
            }
            Step text;
            text.command = body;
            text.onStatus = [this](int code, const QByteArray &) {
                if (code == 240)
                    finishTransaction(240);
                else
                    fail(code, QString());
            };
            send(std::move(text));
        };
        send(std::move(post));
    });
}

void NewsTransport::Disconnect()
{
    m_queue.clear();
    m_busy = false;
    if (m_sock && m_linkUp && m_state == StateConnected && !m_quitting) {
        m_quitting = true;
        m_waiting = false;
        m_inData = false;
        Step quit;
        quit.command = "QUIT";
        quit.onStatus = [this](int, const QByteArray &) {
            if (m_sock)
                m_sock->disconnectFromHost();
        };
        send(std::move(quit));
        m_timer.start(qMin(m_timeoutSecs, 5) * 1000);
        return;
    }
    // nothing to say goodbye to: close at once and tell so after this call returns
    if (m_sock) {
        m_sock->disconnect(this);
        m_sock->abort();
        m_sock->deleteLater();
        m_sock = nullptr;
    }
    m_linkUp = false;
    m_handshaking = false;
    m_quitting = false;
    m_timer.stop();
    setState(StateDisconnected);
    QPointer<NewsTransport> self(this);
    QTimer::singleShot(0, this, [self] {
        if (!self)
            return;
        if (self->m_sink)
            self->m_sink->Disconnected(self);
        emit self->Disconnected(self);
    });
}

void NewsTransport::AbortTransaction()
{
    if (!m_busy && !m_waiting)
        return;
    m_aborted = true;
    m_busy = false;
    m_queue.clear();
    m_timer.stop();
    if (m_state == StateConnecting || m_handshaking) {
        Disconnect();
        return;
    }
    // the rest of the answer is not wanted: close, and log in again at the next operation
    if (m_sock) {
        m_sock->disconnect(this);
        m_sock->abort();
        m_sock->deleteLater();
        m_sock = nullptr;
    }
    m_linkUp = false;
    m_waiting = false;
    m_inData = false;
    m_selectedName.clear();
}
