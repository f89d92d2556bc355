#include "NvxQtCommon/streaming/HydEpochStreamAdapter.h"

#include <QApplication>
#include <QPointer>
#include <QStringTokenizer>

#include <utility>

namespace {

constexpr qsizetype kLongestSkipped = 19;
constexpr uint8_t kTriggerStarted = 2;

std::shared_ptr<HydStreamDataPayload> payloadOf(const SActiveTrigger& occurrence)
{
    stKEY_CHUNK_V1 key;
    key.time = static_cast<uint32_t>(occurrence.time);
    key.seqHigh = static_cast<uint32_t>(occurrence.seq >> 32);
    key.seqLow = static_cast<uint32_t>(occurrence.seq);
    key.trigNum = occurrence.trigger.trigNum();
    key.trigState = occurrence.state;
    auto payload = std::make_shared<HydStreamDataPayload>(
        std::make_shared<HydEventKeyChunkV1>(&key),
        std::make_shared<HydStreamDataChunkV0>(0U, static_cast<unsigned char>(0),
                                               static_cast<unsigned char>(0), static_cast<unsigned short>(0),
                                               0U, false));
    payload->streamType = StreamEpoch;
    return payload;
}

/// A program without windows has nothing to beep with, and other threads than that of the windows may not.
void beepInThreadOfWindows()
{
    if (auto* application = qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        QMetaObject::invokeMethod(
            application, [] { QApplication::beep(); }, Qt::QueuedConnection);
}

} // namespace

HydEpochStreamAdapter::HydEpochStreamAdapter(HydStreamType streamType, unsigned short port,
                                             HydDeviceId deviceId, int alivePeriodMs, bool createSocket)
    : HydEpochStreamAdapter(streamType, port, QString(), std::move(deviceId), alivePeriodMs, createSocket)
{
}

HydEpochStreamAdapter::HydEpochStreamAdapter(HydStreamType streamType, unsigned short port, QString ipAddress,
                                             HydDeviceId deviceId, int alivePeriodMs, bool createSocket)
    : HydStreamAdapter(streamType, port, std::move(ipAddress), std::move(deviceId), alivePeriodMs,
                       createSocket)
{
    createConnections();
}

void HydEpochStreamAdapter::createConnections()
{
    if (m_socket != nullptr)
        disConnectStreamConnections();
}

void HydEpochStreamAdapter::startStream()
{
    if (m_socket != nullptr)
        startEpochStream();
}

void HydEpochStreamAdapter::startEpochStream()
{
    if (!m_epochConnection) {
        m_epochConnection = connect(m_socket, &QTcpSocket::readyRead, this,
                                    &HydEpochStreamAdapter::readStream, Qt::DirectConnection);
        // The socket says nothing more of what came before, and nothing at all once its buffer is full.
        QMetaObject::invokeMethod(this, &HydEpochStreamAdapter::readWaiting, Qt::QueuedConnection);
    }
    const auto isBusy = [this] {
        const auto state = m_socket->state();
        return state == QAbstractSocket::ConnectedState || state == QAbstractSocket::ConnectingState ||
               state == QAbstractSocket::ClosingState;
    };
    if (isBusy())
        return;
    // Connecting empties the socket: what the last connection left is read first.
    if (m_socket->bytesAvailable() > 0) {
        m_startsAfterReading = m_isReading;
        if (m_isReading)
            return;
        const QPointer<HydEpochStreamAdapter> self(this);
        readStream();
        if (self.isNull() || isBusy())
            return;
    }
    connectStream();
}

void HydEpochStreamAdapter::startStreamDevId(HydDeviceId const& devId, int delay)
{
    if (m_isStreamingEnabled || devId != m_deviceId || m_socket == nullptr)
        return;
    const auto state = m_socket->state();
    if (state == QAbstractSocket::ConnectingState || state == QAbstractSocket::ConnectedState)
        startEpochStream();
    else
        delayConnectStream(delay, true);
}

void HydEpochStreamAdapter::startSensorsStreamDevId(HydDeviceId const& devId, int delay, uint16_t duration)
{
    if (m_socket == nullptr)
        return;
    QPointer<HydEpochStreamAdapter> self(this);
    setDuration(duration);
    if (!self.isNull())
        startStreamDevId(devId, delay);
}

// Neither a stop message nor streamStopped. This is intended.
void HydEpochStreamAdapter::stopStream()
{
    m_startsAfterReading = false;
    if (m_epochConnection)
        disconnect(m_epochConnection);
}

void HydEpochStreamAdapter::readWaiting()
{
    if (m_epochConnection)
        readStream();
}

void HydEpochStreamAdapter::readStream()
{
    // Inside a slot on a line, newer lines would overtake those that follow it.
    if (m_socket == nullptr || m_socket->bytesAvailable() == 0 || m_isReading)
        return;
    const QString text = QString::fromUtf8(m_socket->readAll());
    QPointer<HydEpochStreamAdapter> self(this);
    m_isReading = true;
    for (const QStringView line : qTokenize(text, QLatin1Char('\n'))) {
        if (line.size() > kLongestSkipped && !handleLine(line))
            break;
    }
    if (self.isNull())
        return;
    m_isReading = false;
    // The socket says nothing more of bytes that came while a slot ran an event loop of its own.
    if (m_socket->bytesAvailable() > 0)
        QMetaObject::invokeMethod(this, &HydEpochStreamAdapter::readWaiting, Qt::QueuedConnection);
    if (std::exchange(m_startsAfterReading, false))
        startEpochStream();
}

/// False when the rest of the read is to be dropped, or a receiver deleted this adapter.
bool HydEpochStreamAdapter::handleLine(QStringView line)
{
    if (line.front().isNull())
        line = line.sliced(1);
    SActiveTrigger occurrence(line.toString(), TrigDevice);
    // With the type, alias and host that the line doesn't tell.
    if (occurrence.devId.serialNo() == m_deviceId.serialNo())
        occurrence.devId = m_deviceId;
    // What comes behind is lost without a word. This is intended.
    if (occurrence.type == TrigInvalid)
        return false;
    if (occurrence.state == kTriggerStarted && m_trigAlarm)
        beepInThreadOfWindows();
    QPointer<HydEpochStreamAdapter> self(this);
    Q_EMIT signalTrigActive(occurrence);
    if (self.isNull())
        return false;
    Q_EMIT streamDataReady(payloadOf(occurrence), occurrence.devId);
    return !self.isNull();
}
