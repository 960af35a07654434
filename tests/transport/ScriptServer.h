// A scripted NNTP peer on 127.0.0.1 for the faults a real server will not
// produce on demand. Each command line the client sends goes to `handler`,
// which answers through the connection it is given, else to `answer`.
#pragma once

#include "news/transport/NewsTransport.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QHash>
#include <QList>
#include <QProcess>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>
#include <functional>

// A fresh self-signed certificate for 127.0.0.1 and its key; false when openssl fails.
inline bool makeCertificate(QSslCertificate &certificate, QSslKey &key)
{
    QTemporaryDir dir;
    QProcess openssl;
    openssl.start(QStringLiteral("openssl"),
                  {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=127.0.0.1",
                   "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", dir.filePath("key.pem"), "-out",
                   dir.filePath("cert.pem")});
    if (!openssl.waitForFinished(60000) || openssl.exitCode() != 0)
        return false;
    QFile cf(dir.filePath("cert.pem")), kf(dir.filePath("key.pem"));
    if (!cf.open(QIODevice::ReadOnly) || !kf.open(QIODevice::ReadOnly))
        return false;
    certificate = QSslCertificate(cf.readAll(), QSsl::Pem);
    key = QSslKey(kf.readAll(), QSsl::Rsa, QSsl::Pem);
    return !certificate.isNull() && !key.isNull();
}

class ScriptServer : public QTcpServer {
public:
    using Handler = std::function<void(QTcpSocket *client, const QByteArray &line)>;

    QByteArray greeting = "200 scripted server ready, posting ok\r\n";
    Handler handler;
    // answers looked up by the upper-cased command's first word(s) when no handler is set; an
    // answer ending in Close is sent without it and the connection closed. After a 340 to POST
    // the article's lines are taken until its ".", which is answered by replies["."].
    QHash<QByteArray, QByteArray> replies;
    static constexpr char Close = '\x04';
    bool posting = false;
    QList<QByteArray> received;       // every line the clients sent, in order
    QList<bool> receivedEncrypted;    // whether each of those lines came over TLS
    QList<QTcpSocket *> clients;
    int connections = 0;
    bool useTls = false;              // TLS from the start (nntps)
    bool startTls = false;            // plain until the client's STARTTLS, which is answered here
    QSslCertificate certificate;
    QSslKey key;

    bool start() { return listen(QHostAddress::LocalHost, 0); }
    quint16 port() const { return serverPort(); }
    QString address(const QString &scheme = QString()) const
    {
        return scheme + QStringLiteral("127.0.0.1:") + QString::number(serverPort());
    }
    QTcpSocket *last() const { return clients.isEmpty() ? nullptr : clients.last(); }
    int count(const QByteArray &prefix) const
    {
        int n = 0;
        for (const QByteArray &l : received)
            n += l.startsWith(prefix) ? 1 : 0;
        return n;
    }

protected:
    void incomingConnection(qintptr fd) override
    {
        ++connections;
        QTcpSocket *sock = nullptr;
        if (useTls || startTls) {
            auto *ssl = new QSslSocket(this);
            ssl->setSocketDescriptor(fd);
            ssl->setLocalCertificate(certificate);
            ssl->setPrivateKey(key);
            QObject::connect(ssl, &QSslSocket::encrypted, ssl, [this, ssl] {
                if (useTls && !greeting.isEmpty())
                    ssl->write(greeting);
            });
            // the client's refusal shows up here; nothing to do but close
            QObject::connect(ssl, &QSslSocket::sslErrors, ssl, [ssl] { ssl->abort(); });
            if (useTls)
                ssl->startServerEncryption();
            else if (!greeting.isEmpty())
                ssl->write(greeting);
            sock = ssl;
        } else {
            sock = new QTcpSocket(this);
            sock->setSocketDescriptor(fd);
            if (!greeting.isEmpty())
                sock->write(greeting);
        }
        clients.append(sock);
        QObject::connect(sock, &QIODevice::readyRead, sock, [this, sock] {
            while (sock->canReadLine()) {
                QByteArray line = sock->readLine();
                while (line.endsWith('\n') || line.endsWith('\r'))
                    line.chop(1);
                received.append(line);
                auto *ssl = qobject_cast<QSslSocket *>(sock);
                receivedEncrypted.append(ssl && ssl->isEncrypted());
                if (startTls && ssl && line.toUpper() == "STARTTLS") {
                    ssl->write("382 go ahead\r\n");
                    ssl->flush();
                    ssl->startServerEncryption();
                } else if (handler) {
                    handler(sock, line);
                } else {
                    answer(sock, line);
                }
                if (sock->state() != QAbstractSocket::ConnectedState)
                    return;
            }
        });
    }

public:
    // the default answers, for handlers that only change a few commands
    void answer(QTcpSocket *sock, const QByteArray &line)
    {
        if (posting) {
            if (line == ".") {
                posting = false;
                sock->write(replies.value("."));
            }
            return;
        }
        const QByteArray up = line.toUpper();
        // longest matching key wins ("LIST OVERVIEW.FMT" before "LIST")
        QByteArray best;
        for (auto it = replies.constBegin(); it != replies.constEnd(); ++it)
            if (up.startsWith(it.key()) && it.key().size() > best.size())
                best = it.key();
        if (!best.isEmpty()) {
            QByteArray reply = replies.value(best);
            const bool close = reply.endsWith(Close);
            if (close)
                reply.chop(1);
            sock->write(reply);
            posting = best == "POST" && reply.startsWith("340");
            if (close)
                sock->disconnectFromHost();
        } else if (up.startsWith("MODE READER")) {
            sock->write("200 reader mode, posting ok\r\n");
        } else if (up.startsWith("QUIT")) {
            sock->write("205 bye\r\n");
            sock->disconnectFromHost();
        } else {
            sock->write("500 unknown command\r\n");
        }
    }
};

// The client side the tests share: a transport with its notifications recorded (Client), and one
// with a scripted server of its own (Session).

inline const QString kConnected = QStringLiteral("Connected to NNTP Server");
inline const QString kDisconnected = QStringLiteral("Disconnected from NNTP Server");

struct DoneEvent {
    qint32 value;
    bool error;
    QString text;
};

// Collects every notification of one transport.
class Recorder : public QObject {
public:
    explicit Recorder(NewsTransport *t)
    {
        connect(t, &NewsTransport::Debug, this, [this](NewsTransport *, const QString &s) { debug << s; });
        connect(t, &NewsTransport::Done, this, [this](NewsTransport *, qint32 v, bool e, const QString &s) {
            done.append({v, e, s});
        });
        connect(t, &NewsTransport::Connected, this, [this] { ++connected; });
        connect(t, &NewsTransport::Disconnected, this, [this] { ++disconnected; });
    }
    QStringList debug;
    QList<DoneEvent> done;
    int connected = 0;
    int disconnected = 0;
};

// Runs the event loop until ready() holds or ms have passed; wakes on every event, so each step
// of a conversation with the scripted server costs no more than it takes.
inline bool waitFor(const std::function<bool()> &ready, int ms = 10000)
{
    const QDeadlineTimer deadline(ms);
    QTimer wake;   // lets the loop see the deadline when nothing else happens
    wake.start(20);
    while (!ready() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return ready();
}

// A transport with its notifications recorded.
struct Client {
    NewsTransport t;
    Recorder r{&t};

    // Opens a session; true once it is open, false once the attempt has failed.
    bool connectTo(const QString &entry, const QString &user = QString(), const QString &pass = QString())
    {
        const int connected = r.connected;
        const qsizetype done = r.done.size();
        t.Connect(entry, user, pass);
        waitFor([&] { return r.connected > connected || r.done.size() > done; });
        return t.StateText() == kConnected;
    }
    // Waits for the n-th Done; false also when more came.
    bool waitDone(qsizetype n, int ms = 10000)
    {
        return waitFor([&] { return r.done.size() >= n; }, ms) && r.done.size() == n;
    }
    // Starts an operation written as its command: "GROUP name", "LIST", "OVER first-last",
    // "ARTICLE first-last" or "POST text".
    void start(const QString &op)
    {
        const QString arg = op.section(QLatin1Char(' '), 1);
        const qint64 first = arg.section(QLatin1Char('-'), 0, 0).toLongLong();
        const qint64 last = arg.section(QLatin1Char('-'), 1, 1).toLongLong();
        if (op.startsWith(QLatin1String("GROUP ")))
            t.SelectGroup(arg);
        else if (op == QLatin1String("LIST"))
            t.RequestGroupList();
        else if (op.startsWith(QLatin1String("OVER ")))
            t.FetchHeaders(first, last);
        else if (op.startsWith(QLatin1String("ARTICLE ")))
            t.FetchArticles(first, last);
        else {
            NewsTransportArticle a;
            a.Message.Raw = arg.toLatin1();
            t.Post(a);
        }
    }
    // Runs an operation and waits for its one Done.
    bool run(const QString &op, int ms = 10000)
    {
        const qsizetype n = r.done.size();
        start(op);
        return waitDone(n + 1, ms);
    }
    // Runs an operation; true when it ended without an error.
    bool runOk(const QString &op, int ms = 10000) { return run(op, ms) && !r.done.last().error; }
};

// A transport and a scripted server that knows GROUP, LIST OVERVIEW.FMT (without Path), has no
// HDR, and takes the log-in of any user with the password "s3cret".
struct Session : Client {
    ScriptServer s;
    Session()
    {
        s.replies = {{"GROUP", "211 3 10 12 a.b\r\n"},
                     {"LIST OVERVIEW.FMT", "215 order follows\r\nSubject:\r\nFrom:\r\nDate:\r\nMessage-ID:\r\n"
                                           "References:\r\n:bytes\r\n:lines\r\nXref:full\r\n.\r\n"},
                     {"HDR", "503 no hdr today\r\n"},
                     {"AUTHINFO USER", "381 password please\r\n"},
                     {"AUTHINFO PASS S3CRET", "281 welcome\r\n"},
                     {"AUTHINFO PASS", "481 authentication failed\r\n"}};
        s.start();
    }
    bool open(const QString &user = QString(), const QString &pass = QString())
    {
        return s.isListening() && connectTo(s.address(), user, pass);
    }
};
