#pragma once
#include <QByteArray>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

// A one-file HTTP server on 127.0.0.1: answers every GET with the status and body set.
class MiniHttp : public QObject {
    Q_OBJECT
public:
    int status = 200;
    QByteArray body;
    QList<QByteArray> paths;   // request targets seen

    MiniHttp()
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *s = m_server.nextPendingConnection()) {
                connect(s, &QTcpSocket::readyRead, s, [this, s] {
                    m_buf[s] += s->readAll();
                    if (!m_buf[s].contains("\r\n\r\n"))
                        return;
                    const QList<QByteArray> first = m_buf[s].left(m_buf[s].indexOf("\r\n")).split(' ');
                    paths.append(first.value(1));
                    const QByteArray reason = status == 200 ? "OK" : "Not Found";
                    QByteArray out = "HTTP/1.1 " + QByteArray::number(status) + ' ' + reason + "\r\n"
                                     "Content-Type: text/plain\r\nConnection: close\r\nContent-Length: "
                                     + QByteArray::number(body.size()) + "\r\n\r\n" + body;
                    s->write(out);
                    s->disconnectFromHost();
                });
                connect(s, &QTcpSocket::disconnected, s, &QObject::deleteLater);
            }
        });
    }
    QString url(const char *path = "/open-servers.txt") const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(QLatin1String(path));
    }

private:
    QTcpServer m_server;
    QHash<QTcpSocket *, QByteArray> m_buf;
};
