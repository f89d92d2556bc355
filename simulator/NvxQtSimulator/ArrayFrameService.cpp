#include "NvxQtSimulator/ArrayFrameService.h"

#include "NvxQtSimulator/ArrayHandshake.h"
#include "NvxQtSimulator/ArrayListener.h"

#include <QtEndian>

#include <algorithm>

namespace {

// Clients have nothing to say.
constexpr quint64 kMaxClientMessage = 1024;
// A process that slept longer doesn't send what it missed.
constexpr uint64_t kMaxRoundsBehind = 5;
constexpr int64_t kMaxFrameBytes = 4 * 1024 * 1024;
constexpr uint16_t kForeignFrameSerial = 65000;
constexpr uint16_t kEveryBin = 65535;
constexpr int64_t kRefusedHandshake = 500;
constexpr qsizetype kSerialAt = 2;
constexpr qsizetype kBandWidthAt = 10;

} // namespace

ArrayFrameService::ArrayFrameService(ArrayState* state)
    : m_state(state),
      m_handshakes(QStringLiteral("Simulated array controller"), QWebSocketServer::NonSecureMode),
      m_silentUntil(0)
{
    for (size_t i = 0; i < m_state->settings().channels.size(); ++i)
        m_makers.emplace_back(m_state, i);
    m_pace.setTimerType(Qt::PreciseTimer);
    m_pace.setInterval(static_cast<int>(1000 / m_state->settings().framesPerSecond));
    m_handshakes.setMaxPendingConnections(ArrayState::kMaxConnections);
    connect(&m_pace, &QTimer::timeout, this, &ArrayFrameService::sendDueRounds);
    connect(&m_server, &QTcpServer::newConnection, this, &ArrayFrameService::acceptConnections);
    connect(&m_handshakes, &QWebSocketServer::newConnection, this, &ArrayFrameService::acceptClient);
}

ArrayFrameService::~ArrayFrameService()
{
    endClients(true);
}

bool ArrayFrameService::listen(QString* error)
{
    return listenForArray(m_server, m_state->settings().address, m_state->settings().framePort, error);
}

void ArrayFrameService::acceptConnections()
{
    const auto served = [this] {
        return static_cast<qsizetype>(m_clients.size()) + findChildren<ArrayHandshake*>().size();
    };
    while (QTcpSocket* socket = takeArrayConnection(m_server, *m_state, FaultOnFrames, served()))
        connect(new ArrayHandshake(socket, this), &ArrayHandshake::received, this,
                &ArrayFrameService::answerHandshake);
}

void ArrayFrameService::answerHandshake(QTcpSocket* socket)
{
    const auto status = m_state->strike(FaultOnFrames, Fault::Status);
    // Nobody else deletes the socket of a handshake that fails.
    socket->setParent(&m_handshakes);
    connect(socket, &QTcpSocket::disconnected, &m_handshakes, [this, socket] {
        if (socket->parent() == &m_handshakes)
            socket->deleteLater();
    });
    if (!status) {
        m_handshakes.handleConnection(socket);
        return;
    }
    socket->write("HTTP/1.1 " + QByteArray::number(qlonglong(*status > 0 ? *status : kRefusedHandshake)) +
                  " On Demand\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    socket->disconnectFromHost();
}

void ArrayFrameService::acceptClient()
{
    while (QWebSocket* client = m_handshakes.nextPendingConnection()) {
        client->setParent(this);
        for (QTcpSocket* socket : m_handshakes.findChildren<QTcpSocket*>()) {
            if (socket->peerPort() == client->peerPort() && socket->peerAddress() == client->peerAddress())
                socket->setParent(client);
        }
        client->setMaxAllowedIncomingFrameSize(kMaxClientMessage);
        client->setMaxAllowedIncomingMessageSize(kMaxClientMessage);
        m_clients.push_back(client);
        connect(client, &QWebSocket::disconnected, this, [this, client] {
            std::erase(m_clients, client);
            client->deleteLater();
            if (m_clients.empty())
                m_pace.stop();
            Q_EMIT m_state->frameClientClosed();
        });
        ++m_state->counters.frameClients;
        if (!m_pace.isActive()) {
            m_roundsSinceStart = 0;
            m_clock.start();
            m_pace.start();
        }
        Q_EMIT m_state->frameClientOpened();
    }
}

void ArrayFrameService::sendDueRounds()
{
    const auto due = static_cast<uint64_t>(m_clock.elapsed()) * m_state->settings().framesPerSecond / 1000;
    m_roundsSinceStart = std::max(m_roundsSinceStart, due - std::min(due, kMaxRoundsBehind));
    for (; m_roundsSinceStart < due && !m_clients.empty(); ++m_roundsSinceStart)
        sendRound();
}

void ArrayFrameService::sendRound()
{
    cutGreedyClients();
    const auto missing = m_state->strike(FaultOnFrames, Fault::MissingChannel);
    const uint32_t round = m_round++;
    for (size_t i = 0; i < m_makers.size() && !m_clients.empty(); ++i) {
        if (!missing || *missing != static_cast<int64_t>(i))
            sendFrame(m_makers[i].frame(round));
    }
}

void ArrayFrameService::sendFrame(QByteArray frame)
{
    if (const auto milliseconds = m_state->strike(FaultOnFrames, Fault::Silence))
        m_silentUntil =
            *milliseconds > 0 ? QDeadlineTimer(*milliseconds) : QDeadlineTimer(QDeadlineTimer::Forever);
    if (!m_silentUntil.hasExpired() || m_state->strike(FaultOnFrames, Fault::Loss))
        return;
    if (m_state->strike(FaultOnFrames, Fault::Close))
        return endClients(false);
    if (m_state->strike(FaultOnFrames, Fault::Reset))
        return endClients(true);
    if (const auto serial = m_state->strike(FaultOnFrames, Fault::ForeignSerial))
        qToLittleEndian(*serial > 0 ? static_cast<uint16_t>(*serial) : kForeignFrameSerial,
                        frame.data() + kSerialAt);
    if (const auto bins = m_state->strike(FaultOnFrames, Fault::BandWidth))
        qToLittleEndian(*bins > 0 ? static_cast<uint16_t>(*bins) : kEveryBin, frame.data() + kBandWidthAt);
    if (const auto bytes = m_state->strike(FaultOnFrames, Fault::FrameLength)) {
        const auto length = static_cast<qsizetype>(std::clamp<int64_t>(*bytes, 0, kMaxFrameBytes));
        frame = frame.leftJustified(length, '\0', true);
    }
    m_longestFrame = std::max<int64_t>(m_longestFrame, frame.size());
    const int copies = m_state->strike(FaultOnFrames, Fault::Duplicate) ? 2 : 1;
    // Copied: a client that fails leaves the list.
    const std::vector<QWebSocket*> clients = m_clients;
    for (QWebSocket* client : clients) {
        for (int i = 0; i < copies; ++i) {
            const bool isSlow = client->bytesToWrite() > m_state->settings().backlogLimit;
            if (!isSlow)
                client->sendBinaryMessage(frame);
            ++(isSlow ? m_state->counters.framesDropped : m_state->counters.framesSent);
        }
    }
}

void ArrayFrameService::cutGreedyClients()
{
    const int64_t most = m_state->settings().backlogLimit + m_longestFrame + ArrayState::kMaxUnsent;
    const std::vector<QWebSocket*> clients = m_clients;
    for (QWebSocket* client : clients) {
        if (client->bytesToWrite() <= most)
            continue;
        ++m_state->counters.connectionsCut;
        client->abort();
    }
}

void ArrayFrameService::endClients(bool isReset)
{
    const std::vector<QWebSocket*> clients = m_clients;
    for (QWebSocket* client : clients) {
        if (isReset)
            client->abort();
        else
            client->close(QWebSocketProtocol::CloseCodeNormal);
    }
}
