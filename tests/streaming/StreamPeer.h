#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>

/// The recorder's side of a stream: listens on a loopback address, keeps what arrives and sends what it is
/// told.
class StreamPeer
{
public:
    explicit StreamPeer(const QString& address) : m_address(address)
    {
        listen();
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                m_sockets.append(socket);
                QObject::connect(socket, &QTcpSocket::readyRead, &m_server,
                                 [this, socket] { m_received += socket->readAll(); });
            }
        });
    }

    /// Listens again on the port of the first time.
    void listen()
    {
        if (!m_server.listen(QHostAddress(m_address), m_port))
            qFatal("the peer can't listen on %s", qPrintable(m_address));
        m_port = m_server.serverPort();
    }
    void stopListening() { m_server.close(); }

    QString address() const { return m_address; }
    quint16 port() const { return m_port; }
    qsizetype connections() const { return m_sockets.size(); }
    bool isConnected() const
    {
        return !m_sockets.isEmpty() && m_sockets.last()->state() == QAbstractSocket::ConnectedState;
    }
    /// The newest connection.
    QTcpSocket* socket() const { return m_sockets.last(); }

    const QByteArray& received() const { return m_received; }
    QByteArray takeReceived() { return std::exchange(m_received, {}); }
    void send(const QByteArray& bytes)
    {
        socket()->write(bytes);
        socket()->flush();
    }

private:
    QString m_address;
    quint16 m_port = 0;
    QTcpServer m_server;
    QList<QTcpSocket*> m_sockets;
    QByteArray m_received;
};
