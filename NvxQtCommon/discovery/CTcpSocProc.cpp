#include "NvxQtCommon/discovery/CTcpSocProc.h"

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"
#include "NvxQtCommon/contract/message/HydControlProcessor.h"

#include <QDebug>
#include <QNetworkProxy>
#include <QPointer>
#include <QThread>

#include <array>

/// While it lives, a socket whose last reference goes is not deleted: Qt is still in it, and an event loop
/// inside a slot would carry a deletion out right there.
class CTcpSocProc::Busy
{
public:
    explicit Busy(CTcpSocProc& socket) : m_socket(socket) { ++m_socket.m_busy; }
    ~Busy()
    {
        if (--m_socket.m_busy == 0 && m_socket.m_isReleased)
            m_socket.deleteLater();
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

private:
    CTcpSocProc& m_socket;
};

std::shared_ptr<CTcpSocProc> CTcpSocProc::make(QObject* parent, const QHostAddress& address,
                                               unsigned timeWait, uint8_t cmd)
{
    auto* socket = new CTcpSocProc(parent, address, timeWait, cmd);
    return {socket, [guard = QPointer(socket)](CTcpSocProc*) {
                if (!guard)
                    return;
                const QThread* home = guard->thread();
                if (home == QThread::currentThread())
                    guard->release();
                else if (home != nullptr && home->isRunning())
                    guard->deleteLater();
                else
                    delete guard.data();
            }};
}

CTcpSocProc::CTcpSocProc(QObject* parent, QHostAddress address, unsigned timeWait, uint8_t cmd)
    : QTcpSocket(parent), m_hostAddress(address), m_port(PortControl), m_timeWait(timeWait), m_cmd(cmd)
{
    registerNvxMetaTypes();
    // What a proxy says isn't said by the device; and the system's proxies are asked for one by one.
    setProxy(QNetworkProxy::NoProxy);
    // More is never looked at, so a peer that floods takes no memory.
    setReadBufferSize(kReadLimit);
    connect(this, &QAbstractSocket::connected, this, &CTcpSocProc::connectedProc, Qt::DirectConnection);
    connect(this, &QAbstractSocket::disconnected, this, &CTcpSocProc::disconnectedProc, Qt::DirectConnection);
    connect(this, &QIODevice::bytesWritten, this, &CTcpSocProc::bytesWrittenProc, Qt::DirectConnection);
    connect(this, &QIODevice::readyRead, this, &CTcpSocProc::readTcpSocket, Qt::DirectConnection);
    connect(this, &QAbstractSocket::errorOccurred, this,
            qOverload<QAbstractSocket::SocketError>(&CTcpSocProc::error), Qt::DirectConnection);
}

CTcpSocProc::~CTcpSocProc()
{
    // The base class closes the connection, and then its own slots are gone.
    disconnect(this, nullptr, this, nullptr);
}

bool CTcpSocProc::connectIPAddr()
{
    return connectIPAddr(m_hostAddress, m_timeWait, m_cmd, false);
}

bool CTcpSocProc::connectIPAddr(const QHostAddress& address, unsigned timeWait, uint8_t cmd, bool bStore)
{
    closePerform();
    if (bStore) {
        m_hostAddress = address;
        m_timeWait = timeWait;
        m_cmd = cmd;
    }
    connectToHost(address, static_cast<quint16>(m_port), QIODevice::ReadWrite);
    return true;
}

void CTcpSocProc::closePerform()
{
    if (state() == QAbstractSocket::UnconnectedState)
        return;
    disconnectFromHost();
    close();
    // A connection that is still being opened, or has something to send, outlives both.
    if (state() != QAbstractSocket::UnconnectedState)
        abort();
}

void CTcpSocProc::release()
{
    disconnect();
    closePerform();
    m_isReleased = true;
    if (m_busy == 0)
        deleteLater();
    else
        setParent(nullptr);
}

void CTcpSocProc::connectedProc()
{
    if (isOpen() && peerAddress() == m_hostAddress)
        writeTcpSocket(m_cmd);
    else
        closePerform();
}

void CTcpSocProc::disconnectedProc() {}

void CTcpSocProc::bytesWrittenProc(long long) {}

bool CTcpSocProc::writeTcpSocket(uint8_t cmd)
{
    if (!isOpen())
        return false;
    HydMsgPayload payload(cmd, m_senderMark);
    unsigned long long size = 0;
    const unsigned char* bytes = payload.getMessage(size);
    const auto count = static_cast<qint64>(size);
    return write(reinterpret_cast<const char*>(bytes), count) == count;
}

std::shared_ptr<HydDevice> CTcpSocProc::deviceOf(const HydControlMessage& message)
{
    const auto payload = message.payload();
    if (!payload)
        return nullptr;
    // A data collect message doesn't say what sent it: type 0 is intended.
    if (payload->msgType() == 'C' && std::dynamic_pointer_cast<HydDataCollectCmd>(payload))
        return std::make_shared<HydDevice>(DevTypeAny);
    if (payload->msgType() != 'E')
        return nullptr;
    const auto reply = std::dynamic_pointer_cast<HydEnquireCmd>(payload);
    if (!reply)
        return nullptr;
    auto device = HydDevice::createDevice(reply->devType());
    device->updateFromEnquire(*reply);
    return device;
}

void CTcpSocProc::readTcpSocket()
{
    const Busy busy(*this);
    std::array<char, kReadLimit> bytes;
    const qint64 size = read(bytes.data(), kReadLimit);
    CircularByteBuffer buffer(kReadLimit);
    if (size > 0)
        buffer.write(reinterpret_cast<const unsigned char*>(bytes.data()),
                     static_cast<unsigned long long>(size));
    // A slot may close the socket, which then knows neither.
    const NvxNetHostInfo peer(peerAddress().toIPv4Address());
    const NvxIpAddr local(localAddress().toIPv4Address());

    HydControlProcessor processor;
    processor.setOutOfData(false);
    ControlResponseEvent event(buffer);
    do {
        processor.dispatch(&event);
        if (!processor.isAtEndState() || !processor.message())
            continue;
        if (const std::shared_ptr<HydDevice> device = deviceOf(*processor.message())) {
            device->setNetHostInfo(peer);
            device->setIfaceAddr(local);
            Q_EMIT deviceFound(device);
        }
    } while (!processor.outOfData());
    closePerform();
}

void CTcpSocProc::error(QAbstractSocket::SocketError socketError)
{
    const Busy busy(*this);
    qDebug().nospace().noquote() << "CTcpSocProc: socketError: " << socketError << " "
                                 << m_hostAddress.toString();
    closePerform();
    Q_EMIT signalSocketError(socketError, m_hostAddress);
}
