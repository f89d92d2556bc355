#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"
#include "NvxQtCommon/contract/identity/NvxNetRecords.h"
#include "NvxQtCommon/contract/message/HydControlProcessor.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>
#include <memory>

/// A recorder's command channel as a test wants it: listens on an address of its own, keeps each request with
/// the time of its arrival, and answers from a script. Holds one connection, the latest. Lives on the test's
/// thread.
class ControlPeer : public QObject
{
    Q_OBJECT

public:
    struct Request
    {
        char letter;
        QByteArray frame;
        qint64 ms; ///< since this peer was made
    };
    /// Gives the bytes to answer with; empty for silence.
    using Script = std::function<QByteArray(const Request&)>;

    explicit ControlPeer(const QString& address);

    bool listen();
    /// Milliseconds since this peer was made.
    qint64 now() const { return m_clock.elapsed(); }
    void stopListening() { m_server.close(); }
    qint64 bytesToWrite() const { return m_socket ? m_socket->bytesToWrite() : 0; }
    QString address() const { return m_address; }
    NvxIpAddr ipAddr() const { return NvxIpAddr(m_address.toStdString()); }

    void setScript(Script script) { m_script = std::move(script); }
    bool isConnected() const { return m_socket && m_socket->state() == QAbstractSocket::ConnectedState; }
    int connections() const { return m_connections; }
    /// Hands the bytes to the system at once.
    void send(const QByteArray& bytes);
    /// From now on nothing more is read of what arrives.
    void stopReading();
    /// Ends the connection with what was sent.
    void close();
    /// Ends the connection by a reset.
    void reset();

    const QList<Request>& requests() const { return m_requests; }
    /// Letters of all requests in their order.
    QByteArray letters() const;
    qsizetype count(char letter) const { return letters().count(letter); }
    /// Everything that arrived, parsed or not.
    const QByteArray& received() const { return m_received; }
    void forget();

Q_SIGNALS:
    void requestArrived();
    void disconnected();

private:
    void accept();
    void read();

    QString m_address;
    QTcpServer m_server;
    QPointer<QTcpSocket> m_socket;
    Script m_script;
    QList<Request> m_requests;
    QByteArray m_received;
    CircularByteBuffer m_buffer{1048576};
    int m_connections = 0;
    QElapsedTimer m_clock;
};

/// The frame of a payload as bytes to send.
QByteArray frameOf(const HydControlMsgPayload& payload);
/// A well-formed frame of any letter and body.
QByteArray rawFrame(char letter, const QByteArray& body);
/// An enquire reply with this serial number.
QByteArray enquireReply(uint16_t serial);
/// A time reply.
QByteArray timeReply(int time);
/// A data collect reply without chunks.
QByteArray collectReply(uint8_t mask);
/// A data collect reply with wave data: about `size` bytes.
QByteArray collectReply(uint8_t mask, int size);
/// A job setup reply of about `size` bytes.
QByteArray jobSetupReply(int size);
