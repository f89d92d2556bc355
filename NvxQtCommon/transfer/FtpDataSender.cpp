#include "NvxQtCommon/transfer/FtpDataSender.h"

#include <QFileDevice>
#include <QTcpSocket>

namespace {

constexpr qint64 kSendBlock = 131072;

} // namespace

void FtpDataSender::setDevice(QIODevice* device)
{
    stop();
    m_device = device;
    m_hasDevice = device != nullptr;
    m_hasStarted = false;
    m_isComplete = false;
    m_isEndOfDevice = false;
    m_done = 0;
    m_total = device != nullptr && !device->isSequential() ? device->size() - device->pos() : 0;
}

void FtpDataSender::start(QTcpSocket* socket)
{
    m_hasStarted = true;
    m_socket = socket;
    if (m_block == nullptr)
        m_block = std::make_unique_for_overwrite<char[]>(kSendBlock);
    connect(socket, &QTcpSocket::bytesWritten, this, &FtpDataSender::handleWritten);
    if (m_device != nullptr && m_device->isSequential()) {
        connect(m_device, &QIODevice::readyRead, this, &FtpDataSender::fill);
        connect(m_device, &QIODevice::readChannelFinished, this, &FtpDataSender::fill);
        connect(m_device, &QIODevice::aboutToClose, this, &FtpDataSender::fill, Qt::QueuedConnection);
        connect(m_device, &QObject::destroyed, this, &FtpDataSender::fill, Qt::QueuedConnection);
    }
    fill();
}

void FtpDataSender::stop()
{
    if (m_socket != nullptr)
        m_socket->disconnect(this);
    if (m_device != nullptr)
        m_device->disconnect(this);
    m_socket = nullptr;
}

void FtpDataSender::handleWritten(qint64 bytes)
{
    m_done += bytes;
    Q_EMIT progress(m_done, m_total);
    fill();
}

void FtpDataSender::fill()
{
    // Writing tells of written bytes at once where the socket has room.
    if (m_isFilling)
        return;
    m_isFilling = true;
    while (m_socket != nullptr && !m_isEndOfDevice && m_socket->bytesToWrite() < kMaxQueued) {
        const qint64 count = isReadable() ? m_device->read(m_block.get(), kSendBlock) : -1;
        if (count > 0) {
            m_socket->write(m_block.get(), count);
            continue;
        }
        if (count == 0 && !isAtEnd())
            break;
        // Of what a device that was closed still held, nobody knows.
        if (!isReadable() || (count < 0 && !m_device->isSequential())) {
            m_isFilling = false;
            Q_EMIT failed(isReadable()  ? m_device->errorString()
                          : m_hasDevice ? QStringLiteral("The device to send is gone")
                                        : QStringLiteral("There is nothing to send"));
            return;
        }
        m_isEndOfDevice = true;
    }
    m_isFilling = false;
    if (m_socket != nullptr && m_isEndOfDevice && m_socket->bytesToWrite() == 0 && !m_isComplete) {
        m_isComplete = true;
        m_socket->disconnectFromHost();
    }
}

bool FtpDataSender::isWaitingForDevice() const
{
    return m_socket != nullptr && !m_isEndOfDevice && m_socket->bytesToWrite() == 0;
}

bool FtpDataSender::isAtEnd() const
{
    // A pipe that is opened as a file reads nothing at its end; another sequential device says -1 there.
    return !m_device->isSequential() || qobject_cast<QFileDevice*>(m_device) != nullptr;
}
