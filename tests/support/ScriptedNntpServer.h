#pragma once
// A small NNTP server for tests: it greets, records every command line and answers from a
// function the test supplies. It can also stay silent or close at will.
#include <QByteArray>
#include <QList>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <functional>

class ScriptedNntpServer : public QTcpServer {
public:
    QByteArray greeting = "200 scripted news server ready - posting ok\r\n";
    bool silent = false;          // accept, never say anything
    // Returns the whole reply for one command line (without CR LF); an empty reply says nothing.
    std::function<QByteArray(const QByteArray &command)> respond = [](const QByteArray &cmd) -> QByteArray {
        const QByteArray verb = cmd.split(' ').value(0).toUpper();
        if (verb == "QUIT")
            return "205 bye\r\n";
        if (verb == "MODE")
            return "200 reader\r\n";
        if (verb == "AUTHINFO")
            return cmd.toUpper().startsWith("AUTHINFO USER") ? "381 more\r\n" : "281 ok\r\n";
        if (verb == "CAPABILITIES")
            return "101 caps\r\nVERSION 2\r\nREADER\r\nOVER\r\nHDR\r\n.\r\n";
        return "500 what?\r\n";
    };
    QList<QByteArray> commands;
    int connections = 0;
    QList<QPointer<QTcpSocket>> sockets;

    explicit ScriptedNntpServer(QObject *parent = nullptr) : QTcpServer(parent)
    {
        listen(QHostAddress::LocalHost, 0);
    }
    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(serverPort()); }
    bool sawCommand(const QByteArray &prefix) const
    {
        for (const QByteArray &c : commands)
            if (c.startsWith(prefix))
                return true;
        return false;
    }

protected:
    void incomingConnection(qintptr fd) override
    {
        auto *s = new QTcpSocket(this);
        s->setSocketDescriptor(fd);
        ++connections;
        sockets << s;
        if (!silent)
            s->write(greeting);
        connect(s, &QTcpSocket::readyRead, s, [this, s] {
            while (s->canReadLine()) {
                QByteArray line = s->readLine();
                while (line.endsWith('\n') || line.endsWith('\r'))
                    line.chop(1);
                commands << line;
                if (silent)
                    continue;
                const QByteArray reply = respond(line);
                if (!reply.isEmpty())
                    s->write(reply);
                if (line.toUpper() == "QUIT")
                    s->disconnectFromHost();
            }
        });
    }
};
