#pragma once
// A loopback forwarder in front of a news server that counts the sessions opened through it.
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

class CountingProxy : public QObject {
public:
    explicit CountingProxy(int targetPort) : m_target(quint16(targetPort))
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *in = m_server.nextPendingConnection()) {
                ++connections;
                auto *out = new QTcpSocket(in);
                QPointer<QTcpSocket> pin = in, pout = out;
                connect(out, &QTcpSocket::readyRead, in, [pin, pout] { if (pin && pout) pin->write(pout->readAll()); });
                connect(in, &QTcpSocket::readyRead, out, [pin, pout] {
                    if (pin && pout && pout->state() == QAbstractSocket::ConnectedState) pout->write(pin->readAll());
                });
                connect(out, &QTcpSocket::connected, in, [pin, pout] { if (pin && pout) pout->write(pin->readAll()); });
                connect(out, &QTcpSocket::disconnected, in, [pin] { if (pin) pin->disconnectFromHost(); });
                connect(in, &QTcpSocket::disconnected, in, [pin, pout, this] {
                    ++closed;
                    if (pout) pout->disconnectFromHost();
                    if (pin) pin->deleteLater();
                });
                out->connectToHost(QHostAddress::LocalHost, m_target);
            }
        });
    }
    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(m_server.serverPort()); }
    int connections = 0;
    int closed = 0;

private:
    QTcpServer m_server;
    quint16 m_target;
};
