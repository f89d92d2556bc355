#include "NvxQtSimulator/StreamSession.h"

#include "NvxQtCommon/contract/stream/HydStreamMessage.h"

#include <QtEndian>

#include <utility>

namespace {

constexpr qsizetype kStartSize = 8;
constexpr qsizetype kStopSize = 4;
const QByteArray kStartHead = QByteArrayLiteral("3*\0\4");
const QByteArray kStopMessage = QByteArrayLiteral("4*\0\0");
// Event headers pass where data blocks no longer do, up to this many bytes.
constexpr qint64 kHeaderAllowance = 64 * 1024;

} // namespace

StreamSession::StreamSession(QTcpSocket* socket, RecorderState* state, HydStreamType type, QObject* parent)
    : QObject(parent), m_socket(socket), m_state(state), m_type(type),
      m_link(socket, state, faultChannel(type), this)
{
    m_socket->setParent(this);
    m_pace.setTimerType(Qt::PreciseTimer);
    m_end.setSingleShot(true);
    connect(m_socket, &QTcpSocket::readyRead, this, &StreamSession::readMessages);
    connect(m_socket, &QTcpSocket::disconnected, this, [this] {
        stop();
        deleteLater();
    });
    connect(m_state, &RecorderState::restarted, m_socket, &QTcpSocket::disconnectFromHost);
    connect(m_state, &RecorderState::notification, this, &StreamSession::sendNotification);
    connect(&m_pace, &QTimer::timeout, this, [this] { proceed(); });
    connect(&m_end, &QTimer::timeout, this, &StreamSession::stop);
    connect(&m_link, &FaultyLink::drained, this, [this] {
        if (m_running && m_onDemand)
            proceedSoon();
    });
}

StreamSession::~StreamSession()
{
    FaultyLink::retire(m_socket);
}

FaultChannel StreamSession::faultChannel(HydStreamType type)
{
    switch (type) {
    case StreamSpectrum:
        return FaultOnSpectrum;
    case StreamSensor:
        return FaultOnSensor;
    case StreamEpoch:
        return FaultOnEpoch;
    default:
        return FaultOnWave;
    }
}

void StreamSession::readMessages()
{
    m_received += m_socket->readAll();
    qsizetype position = 0;
    while (m_received.size() - position >= kStopSize) {
        const QByteArrayView rest = QByteArrayView(m_received).sliced(position);
        if (rest.startsWith(kStopMessage)) {
            stop();
            position += kStopSize;
        } else if (!rest.startsWith(kStartHead)) {
            ++position;
        } else if (rest.size() < kStartSize) {
            break;
        } else {
            start(qFromBigEndian<quint16>(rest.data() + 4), qFromBigEndian<quint16>(rest.data() + 6));
            position += kStartSize;
        }
    }
    m_received.remove(0, position);
}

void StreamSession::start(uint16_t minutes, uint16_t requestedBits)
{
    ++m_state->counters.streamStarts;
    m_requestedBits = requestedBits;
    m_link.endSilence();
    if (minutes > 0)
        m_end.start(minutes * 60000);
    else
        m_end.stop();
    if (m_running)
        return;
    m_running = true;
    Q_EMIT m_state->streamStarted(m_type);
    begin();
}

void StreamSession::stop()
{
    m_pace.stop();
    m_end.stop();
    if (!m_running)
        return;
    m_running = false;
    Q_EMIT m_state->streamStopped(m_type);
}

void StreamSession::setPace(int milliseconds)
{
    m_onDemand = milliseconds == 0;
    if (m_onDemand)
        proceedSoon();
    else
        m_pace.start(milliseconds);
}

void StreamSession::proceedSoon()
{
    if (std::exchange(m_proceedPending, true))
        return;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_proceedPending = false;
            proceed();
        },
        Qt::QueuedConnection);
}

bool StreamSession::sendFrame(const QByteArray& frame)
{
    if (m_link.backlog() > m_state->settings().backlogLimit + kHeaderAllowance) {
        ++m_state->counters.framesDropped;
        return false;
    }
    if (m_link.send(frame) != FaultyLink::Fate::Sent)
        return false;
    m_state->counters.bytesSent += static_cast<uint64_t>(frame.size());
    return true;
}

bool StreamSession::sendPayload(std::shared_ptr<HydStreamMessagePayload> payload)
{
    const std::vector<uint8_t> frame = HydStreamMessage(std::move(payload)).frame();
    return sendFrame(
        QByteArray(reinterpret_cast<const char*>(frame.data()), static_cast<qsizetype>(frame.size())));
}

void StreamSession::sendNotification(quint16 code, const QByteArray& text)
{
    if (!m_running || m_type == StreamEpoch)
        return;
    sendPayload(std::make_shared<HydStreamNotifyPayload>(code, text.toStdString()));
    // As the reader does: 2 and 4 are for information, all others end the stream.
    if (code != 2 && code != 4)
        stop();
}
