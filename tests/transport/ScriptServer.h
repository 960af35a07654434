// A scripted NNTP peer on 127.0.0.1 for the faults a real server will not
// produce on demand. Each command line the client sends goes to `handler`,
// which answers through the connection it is given, else to `answer`.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <functional>

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
    QList<QTcpSocket *> clients;
    int connections = 0;
    bool useTls = false;
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
        if (useTls) {
            auto *ssl = new QSslSocket(this);
            ssl->setSocketDescriptor(fd);
            ssl->setLocalCertificate(certificate);
            ssl->setPrivateKey(key);
            QObject::connect(ssl, &QSslSocket::encrypted, ssl, [this, ssl] {
                if (!greeting.isEmpty())
                    ssl->write(greeting);
            });
            // the client's refusal shows up here; nothing to do but close
            QObject::connect(ssl, &QSslSocket::sslErrors, ssl, [ssl] { ssl->abort(); });
            ssl->startServerEncryption();
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
                if (handler) {
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
