#pragma once
// A scripted server's endless answer: head first, then chunk() again and again, never more than a
// few MiB ahead of what the client takes, so the server side's memory stays small.
#include <QAbstractSocket>
#include <QByteArray>
#include <QPointer>
#include <QTcpSocket>
#include <functional>

inline void streamForever(QTcpSocket *c, const QByteArray &head, std::function<QByteArray()> chunk)
{
    c->write(head);
    QPointer<QTcpSocket> sock(c);
    auto more = [sock, chunk] {
        while (sock && sock->state() == QAbstractSocket::ConnectedState && sock->bytesToWrite() < (4 << 20))
            sock->write(chunk());
    };
    QObject::connect(c, &QIODevice::bytesWritten, c, more);
    more();
}
