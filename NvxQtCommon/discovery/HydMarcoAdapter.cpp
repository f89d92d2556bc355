#include "NvxQtCommon/discovery/HydMarcoAdapter.h"

#include "NvxQtCommon/discovery/CTcpSocProc.h"
#include "NvxQtCommon/discovery/CUdpSocProc.h"
#include "NvxQtCommon/discovery/ProbeGate.h"

#include <QDebug>
#include <QNetworkDatagram>
#include <QNetworkInterface>
#include <array>

namespace {

constexpr unsigned long long kMarcoRingSize = 16384;
constexpr size_t kMaxUnanswered = 5;
// A flood must not keep the event loop from everything else.
constexpr int kMaxDatagramsPerReading = 256;

QByteArray marcoDatagram(const std::shared_ptr<HydMarcoCommandPayload>& payload)
{
    std::array<unsigned char, HydMarcoCommand::kMaxDatagramSize> buffer{};
    unsigned long long size = 0;
    HydMarcoCommand(payload).serialize(&size, buffer.data());
    return QByteArray(reinterpret_cast<const char*>(buffer.data()), static_cast<qsizetype>(size));
}

uint32_t lastIpv4AddressOf(const QNetworkInterface& netInterface)
{
    uint32_t address = 0;
    for (const QNetworkAddressEntry& entry : netInterface.addressEntries()) {
        if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol)
            address = entry.ip().toIPv4Address();
    }
    return address;
}

void disconnectAndClose(QUdpSocket& socket)
{
    socket.disconnectFromHost();
    socket.close();
    // A host lookup that is under way (a null address starts one) outlives both.
    if (socket.state() != QAbstractSocket::UnconnectedState)
        socket.abort();
}

} // namespace

HydMarcoAdapter::HydMarcoAdapter()
    : m_received(kMarcoRingSize), m_gate(std::make_shared<ProbeGate>(this)),
      m_enquiredAddress(QStringLiteral("0.0.0.0"))
{
    registerNvxMetaTypes();
    qRegisterMetaType<std::shared_ptr<HydMarcoCommand>>();
    connect(this, &HydMarcoAdapter::messageReceived, this, &HydMarcoAdapter::handleMarcoMsg);
}

HydMarcoAdapter::~HydMarcoAdapter()
{
    m_gate->close();
    for (QUdpSocket* socket : findChildren<QUdpSocket*>())
        socket->disconnect(this);
}

void HydMarcoAdapter::netEnquire(const HydDevice& device) const
{
    auto enquiry = std::make_shared<HydNetworkEnqireCmd>();
    enquiry->setNetInfo(device.netHostInfo());
    enquiry->setSerialNo(device.serial());
    enquiry->setDeviceType(device.devType());
    bcastCommand(enquiry);
}

void HydMarcoAdapter::netEnquire(HydDeviceType type, uint16_t serial) const
{
    auto enquiry = std::make_shared<HydNetworkEnqireCmd>();
    enquiry->setSerialNo(serial);
    enquiry->setDeviceType(type);
    bcastCommand(enquiry);
}

void HydMarcoAdapter::changeNetSettings(uint16_t serial, HydDeviceType type, const NvxNetHostInfo& info) const
{
    bcastCommand(std::make_shared<HydChangeNetworkCmd>(type, serial, info));
}

void HydMarcoAdapter::resetDevice(const NvxMacAddr& mac) const
{
    bcastCommand(std::make_shared<HydResetDeviceCmd>(mac));
}

void HydMarcoAdapter::bcastCommand(std::shared_ptr<HydMarcoCommandPayload> payload) const
{
    if (!payload)
        return;
    for (CUdpSocProc* socket : getUdpSockets()) {
        payload->setResponsePort(socket->localPort());
        const QByteArray datagram = marcoDatagram(payload);
        if (datagram.isEmpty()) {
            qDebug() << "HydMarcoAdapter::bcastCommand: nothing to send for a payload of kind"
                     << payload->kind();
            continue;
        }
        QTimer* timer = socket->timer();
        // The constructor has started it, so that neither this nor the start below finds it idle. Intended.
        if (!timer->isActive())
            timer->setInterval(m_timeoutPeriod);
        connect(socket, &QUdpSocket::readyRead, socket, &CUdpSocProc::StartTimer);
        // Under nested event loops the socket's deferred deletion can wait while its timer goes on.
        connect(timer, &QTimer::timeout, this, &HydMarcoAdapter::timeout, Qt::SingleShotConnection);
        if (socket->writeDatagram(datagram, QHostAddress::Broadcast, MARCO_PORT) != datagram.size()) {
            qDebug().noquote() << "HydMarcoAdapter::bcastCommand: not sent from"
                               << socket->localAddress().toString() << "-" << socket->errorString();
        }
        socket->StartTimer();
    }
}

QList<CUdpSocProc*> HydMarcoAdapter::getUdpSockets() const
{
    QList<CUdpSocProc*> sockets;
    for (const QNetworkInterface& netInterface : QNetworkInterface::allInterfaces()) {
        const QNetworkInterface::InterfaceFlags flags = netInterface.flags();
        if (!flags.testFlag(QNetworkInterface::IsUp) || !flags.testFlag(QNetworkInterface::IsRunning) ||
            flags.testFlag(QNetworkInterface::IsLoopBack))
            continue;
        for (const QNetworkAddressEntry& entry : netInterface.addressEntries()) {
            if (entry.ip().protocol() != QAbstractSocket::IPv4Protocol)
                continue;
            // A broadcast changes nothing of the adapter but its children.
            auto* socket = new CUdpSocProc(const_cast<HydMarcoAdapter*>(this));
            connect(socket, &QUdpSocket::readyRead, this, &HydMarcoAdapter::readUdpSocket);
            if (!socket->bind(entry.ip(), 0))
                continue;
            sockets.append(socket);
            socket->setMulticastInterface(netInterface);
        }
    }
    return sockets;
}

void HydMarcoAdapter::netEnquireUDPIPAddr(const QHostAddress& address, bool, bool)
{
    if (!m_unicastSocket) {
        m_unicastSocket = std::make_shared<QUdpSocket>(this);
        connect(m_unicastSocket.get(), &QUdpSocket::readyRead, this, &HydMarcoAdapter::readUdpSocket);
        connect(m_unicastSocket.get(), &QUdpSocket::connected, this, &HydMarcoAdapter::netEnqUDPConnected);
    }
    m_enquiredAddress = address;
    disconnectAndClose(*m_unicastSocket);
    m_unicastSocket->connectToHost(address, MARCO_PORT, QIODevice::ReadWrite);
}

void HydMarcoAdapter::netEnqUDPConnected()
{
    m_unicastSocket->open(QIODevice::ReadWrite);
    bool sent = false;
    bool unreachable = false;
    if (m_unicastSocket->isOpen() && m_unicastSocket->peerAddress() == m_enquiredAddress) {
        auto enquiry = std::make_shared<HydNetworkEnqireCmd>();
        enquiry->setDeviceType(DevTypeAny);
        enquiry->setSerialNo(0);
        enquiry->setResponsePort(m_unicastSocket->localPort());
        const QByteArray datagram = marcoDatagram(enquiry);
        // On a connected socket this is the datagram to the enquired address.
        sent = m_unicastSocket->write(datagram) == datagram.size();
        // An enquiry that a local firewall refuses to send is as unanswered as a lost one.
        m_unanswered.push_back(m_enquiredAddress);
        unreachable = m_unanswered.size() > kMaxUnanswered;
        if (unreachable)
            m_unanswered.clear();
    }
    // The answer comes to this socket: while one is awaited, reading it or the next enquiry closes.
    if (!sent)
        disconnectAndClose(*m_unicastSocket);
    if (unreachable) {
        Q_EMIT error(
            QStringLiteral("Please, check Windows Defender Firewall permission to access this device (%1)"
                           " through network.")
                .arg(m_enquiredAddress.toString()));
    }
}

void HydMarcoAdapter::readUdpSocket()
{
    auto* socket = qobject_cast<QUdpSocket*>(sender());
    // Refused enquiries wake the socket without a datagram: those prove nothing and stay unanswered.
    const bool refused = socket && socket->isValid() && !socket->hasPendingDatagrams();
    if (!refused)
        m_unanswered.clear();
    if (!socket) {
        qDebug()
            << "HydMarcoAdapter::readUdpSocket(): WARNING! qobject_cast<QUdpSocket*>(sender() failed. UDP "
               "Socket wasy not read and not get destroyed.";
        return;
    }

    std::vector<std::shared_ptr<HydMarcoCommand>> messages;
    const auto hasMore = [socket] { return socket->isValid() && socket->hasPendingDatagrams(); };
    for (int count = 0; count < kMaxDatagramsPerReading && hasMore(); ++count) {
        const QByteArray datagram = socket->receiveDatagram(HydMarcoCommand::kMaxDatagramSize + 1).data();
        const auto size = static_cast<unsigned long long>(datagram.size());
        if (size > HydMarcoCommand::kMaxDatagramSize)
            continue;
        if (size > m_received.freeSpace())
            parseReceived(messages);
        m_received.write(reinterpret_cast<const unsigned char*>(datagram.constData()), size);
        m_processor.setOutOfData(false);
    }

    const QNetworkInterface netInterface =
        socket->isValid() ? socket->multicastInterface() : QNetworkInterface();
    // What is still pending wakes the socket again in the next turn of the event loop.
    if (!qobject_cast<CUdpSocProc*>(socket) && !hasMore())
        disconnectAndClose(*socket);
    uint32_t interfaceAddress = 0;
    if (netInterface.isValid()) {
        interfaceAddress = lastIpv4AddressOf(netInterface);
    } else {
        qDebug() << "INVALID INTERFACE!";
        qDebug() << "void HydMarcoAdapter::readUdpSocket()";
    }

    // One by one from the event loop, and not from within the socket's own notification: a slot may show a
    // dialog, under which the socket ends by its timer and the next messages still come in order.
    parseReceived(messages);
    for (const std::shared_ptr<HydMarcoCommand>& message : messages) {
        const auto deliver = [this, message, interfaceAddress] {
            Q_EMIT messageReceived(message, interfaceAddress);
        };
        QMetaObject::invokeMethod(this, deliver, Qt::QueuedConnection);
    }
}

void HydMarcoAdapter::parseReceived(std::vector<std::shared_ptr<HydMarcoCommand>>& messages)
{
    MarcoMessageEvent event(m_received);
    m_processor.setOutOfData(false);
    do {
        m_processor.dispatch(&event);
        if (m_processor.isAtEndState() && m_processor.message())
            messages.push_back(m_processor.message());
    } while (!m_processor.outOfData());
}

void HydMarcoAdapter::handleMarcoMsg(std::shared_ptr<HydMarcoCommand> msg, uint32_t ifaceAddr)
{
    if (!msg)
        return;
    const std::shared_ptr<HydMarcoCommandPayload> payload = msg->payload();
    if (const auto enquiry = std::dynamic_pointer_cast<HydNetworkEnqireCmd>(payload)) {
        const std::shared_ptr<HydDevice> device = HydDevice::createDevice(enquiry->deviceType());
        device->setSerial(enquiry->serialNo());
        device->setNetHostInfo(enquiry->netInfo());
        device->setIfaceAddr(NvxIpAddr(ifaceAddr));
        Q_EMIT deviceFound(device);
    } else if (const auto change = std::dynamic_pointer_cast<HydChangeNetworkCmd>(payload)) {
        const auto device = std::make_shared<HydDevice>(change->serialNo(), change->deviceType(),
                                                        change->netInfo(), JobTagMap());
        if (change->error() == 0) {
            Q_EMIT deviceChanged(device);
        } else {
            Q_EMIT error(
                QString::fromStdString("The network configuration was rejected by " + device->friendlyText() +
                                       ".\n\nReason: " + HydChangeNetworkCmd::errorReason(change->error())));
        }
    } else if (const auto reset = std::dynamic_pointer_cast<HydResetDeviceCmd>(payload)) {
        Q_EMIT deviceReset(reset->macAddress());
    }
}

void HydMarcoAdapter::errorHandle(QAbstractSocket::SocketError socketError, QHostAddress hAddress)
{
    qDebug() << "HydMarcoAdapter: socketError: " << socketError << hAddress;
    Q_EMIT signalSocketError(socketError, hAddress);
}
