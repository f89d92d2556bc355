#include "NvxQtSimulator/DiscoveryService.h"

#include "NvxQtCommon/contract/message/HydMarcoProcessor.h"

#include <QNetworkDatagram>

#include <array>

namespace {

// Answers to a change of network settings, as the wire has them.
enum NetworkRefusal : uint16_t {
    NetworkAccepted = 0,
    NetworkBadAddress = 1,
    NetworkBadSubnet = 2,
    NetworkBadGateway = 3,
    NetworkBroadcast = 4,
    NetworkSameAddress = 5,
    NetworkBadMode = 6,
    NetworkDeviceError = 0xFFFF,
};

constexpr QAbstractSocket::BindMode kShared =
    QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint;

std::shared_ptr<HydMarcoCommandPayload> discoveryRequest(const QByteArray& bytes)
{
    CircularByteBuffer buffer(HydMarcoCommand::kMaxDatagramSize);
    const auto size = static_cast<unsigned long long>(bytes.size());
    if (buffer.write(reinterpret_cast<const unsigned char*>(bytes.constData()), size) != size)
        return nullptr;
    HydMarcoProcessor processor;
    MarcoMessageEvent event(buffer);
    do {
        processor.dispatch(&event);
        if (processor.isAtEndState() && processor.message())
            return processor.message()->payload();
    } while (!processor.outOfData());
    return nullptr;
}

} // namespace

DiscoveryService::DiscoveryService(RecorderState* state, QObject* parent) : QObject(parent), m_state(state)
{
    connect(&m_own, &QUdpSocket::readyRead, this, &DiscoveryService::readOwn);
    connect(&m_broadcasts, &QUdpSocket::readyRead, this, &DiscoveryService::readBroadcasts);
}

bool DiscoveryService::listen(QString* error)
{
    const QHostAddress& address = m_state->settings().address;
    const QUdpSocket* failed = nullptr;
    if (!m_own.bind(address, PortMarco, kShared))
        failed = &m_own;
    // A socket on the broadcast address itself gets in nobody's way; not every system allows one.
    else if (address != QHostAddress(QHostAddress::AnyIPv4) &&
             !m_broadcasts.bind(QHostAddress(QHostAddress::Broadcast), PortMarco, kShared) &&
             !m_broadcasts.bind(QHostAddress::AnyIPv4, PortMarco, kShared))
        failed = &m_broadcasts;
    if (failed)
        *error = QStringLiteral("UDP port %1 of %2: %3")
                     .arg(PortMarco)
                     .arg(address.toString(), failed->errorString());
    return failed == nullptr;
}

void DiscoveryService::readOwn()
{
    while (m_own.hasPendingDatagrams())
        answer(m_own.receiveDatagram());
}

void DiscoveryService::readBroadcasts()
{
    while (m_broadcasts.hasPendingDatagrams()) {
        const QNetworkDatagram datagram = m_broadcasts.receiveDatagram();
        // On the address of all addresses it would also hear what is sent to recorders that aren't there.
        if (datagram.destinationAddress() == QHostAddress(QHostAddress::Broadcast))
            answer(datagram);
    }
}

void DiscoveryService::answer(const QNetworkDatagram& datagram)
{
    const auto request = discoveryRequest(datagram.data());
    if (!request)
        return;
    const uint16_t responsePort = request->responsePort();
    std::shared_ptr<HydMarcoCommandPayload> payload;
    bool restarts = false;
    if (const auto enquiry = std::dynamic_pointer_cast<HydNetworkEnqireCmd>(request)) {
        payload = answerEnquiry(*enquiry);
    } else if (const auto change = std::dynamic_pointer_cast<HydChangeNetworkCmd>(request)) {
        payload = answerChange(*change);
    } else if (const auto reset = std::dynamic_pointer_cast<HydResetDeviceCmd>(request)) {
        restarts = reset->macAddress() == m_state->netInfo().macAddress();
        if (restarts)
            payload = std::make_shared<HydResetDeviceCmd>(reset->macAddress());
    }
    if (!payload || responsePort == 0 || m_state->strike(FaultOnDiscovery, Fault::Loss))
        return;

    std::array<unsigned char, HydMarcoCommand::kMaxDatagramSize> bytes{};
    unsigned long long size = 0;
    HydMarcoCommand(payload).serialize(&size, bytes.data());
    if (m_state->strike(FaultOnDiscovery, Fault::BadChecksum))
        bytes[size - 1] ^= 0x55;
    const int copies = m_state->strike(FaultOnDiscovery, Fault::Duplicate) ? 2 : 1;
    if (m_state->strike(FaultOnDiscovery, Fault::Junk)) {
        std::array<char, 32> junk;
        for (char& byte : junk)
            byte = static_cast<char>(m_state->dice(FaultOnDiscovery).random(256));
        m_own.writeDatagram(junk.data(), junk.size(), datagram.senderAddress(), responsePort);
    }
    for (int i = 0; i < copies; ++i)
        m_own.writeDatagram(reinterpret_cast<const char*>(bytes.data()), static_cast<qint64>(size),
                            datagram.senderAddress(), responsePort);
    ++m_state->counters.enquiries;
    Q_EMIT m_state->enquiryAnswered();
    if (restarts)
        m_state->restart();
}

std::shared_ptr<HydMarcoCommandPayload>
DiscoveryService::answerEnquiry(const HydNetworkEnqireCmd& request) const
{
    const RecorderIdentity& who = m_state->identity();
    if ((request.deviceType() != DevTypeAny && request.deviceType() != who.type) ||
        (request.serialNo() != 0 && request.serialNo() != who.serial))
        return nullptr;
    auto payload = std::make_shared<HydNetworkEnqireCmd>();
    payload->setDeviceType(who.type);
    payload->setSerialNo(who.serial);
    payload->setNetInfo(m_state->netInfo());
    return payload;
}

std::shared_ptr<HydMarcoCommandPayload> DiscoveryService::answerChange(const HydChangeNetworkCmd& request)
{
    const RecorderIdentity& who = m_state->identity();
    if (request.serialNo() != who.serial ||
        (request.deviceType() != DevTypeAny && request.deviceType() != who.type))
        return nullptr;
    uint16_t code = checkNetwork(request.netInfo());
    if (const auto refusal = m_state->strike(FaultOnDiscovery, Fault::Refuse))
        code = *refusal > 0 ? static_cast<uint16_t>(*refusal) : uint16_t{NetworkDeviceError};
    if (code == NetworkAccepted) {
        NvxNetHostInfo info = request.netInfo();
        info.setMacAddress(m_state->netInfo().macAddress());
        m_state->setNetInfo(info);
    }
    auto payload = std::make_shared<HydChangeNetworkCmd>(who.type, who.serial, m_state->netInfo());
    payload->setError(code);
    return payload;
}

uint16_t DiscoveryService::checkNetwork(const NvxNetHostInfo& info) const
{
    const uint32_t address = info.ipAddress().toInt();
    const uint32_t mask = info.subnetMask().toInt();
    const uint32_t gateway = info.gateway().toInt();
    if (info.addressMode() > AddrLinkLocal)
        return NetworkBadMode;
    if (info.addressMode() != AddrStatic)
        return NetworkAccepted;
    if (address == 0 || (address >> 28) == 0xE)
        return NetworkBadAddress;
    // A mask is ones and then zeros: its complement plus one is a power of two.
    if (mask == 0 || ((~mask + 1) & ~mask) != 0)
        return NetworkBadSubnet;
    if ((address | mask) == 0xFFFFFFFF)
        return NetworkBroadcast;
    if (gateway != 0 && (gateway & mask) != (address & mask))
        return NetworkBadGateway;
    if (address == m_state->netInfo().ipAddress().toInt())
        return NetworkSameAddress;
    return NetworkAccepted;
}
