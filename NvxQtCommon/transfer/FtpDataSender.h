#pragma once

#include <QIODevice>
#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>

class QTcpSocket;

/// Writes a device to a data connection, at most kMaxQueued bytes ahead of it, and closes the connection
/// behind the last byte. Belongs to the data connection and lives on its thread.
class FtpDataSender : public QObject
{
    Q_OBJECT

public:
    /// Bytes that wait in the socket at most.
    static constexpr qint64 kMaxQueued = 524288;

    explicit FtpDataSender(QObject* parent) : QObject(parent) {}

    /// `device` is what start() will send, from where it stands; null is nothing.
    void setDevice(QIODevice* device);
    bool hasStarted() const { return m_hasStarted; }
    /// The device was sent to its end.
    bool isComplete() const { return m_isComplete; }
    /// All that the device had so far has left.
    bool isWaitingForDevice() const;

    /// The socket, which is connected, stays with its owner.
    void start(QTcpSocket* socket);
    void stop();

Q_SIGNALS:
    /// Bytes that left, of how many; the second is 0 for a device that can't tell.
    void progress(qint64 done, qint64 total);
    /// The device can't be read any more, or there is none. The connection is left as it is.
    void failed(const QString& text);

private:
    void handleWritten(qint64 bytes);
    void fill();
    bool isReadable() const { return m_device != nullptr && m_device->isReadable(); }
    bool isAtEnd() const;

    QPointer<QIODevice> m_device;
    QPointer<QTcpSocket> m_socket;
    std::unique_ptr<char[]> m_block;
    qint64 m_done = 0;
    qint64 m_total = 0;
    bool m_hasDevice = false;
    bool m_hasStarted = false;
    bool m_isComplete = false;
    bool m_isEndOfDevice = false;
    bool m_isFilling = false;
};
