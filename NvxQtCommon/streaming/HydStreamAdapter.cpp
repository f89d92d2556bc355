#include "NvxQtCommon/streaming/HydStreamAdapter.h"

#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/streaming/HydEpochStreamAdapter.h"

#include <QAbstractEventDispatcher>
#include <QDebug>
#include <QPointer>

#include <algorithm>
#include <chrono>

namespace {

constexpr int kMinStaleSeconds = 2;
constexpr uint16_t kSecondsPerMinute = 60;

int64_t secondsSinceEpoch()
{
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

/// Runs `step` once after `ms` milliseconds; it dies with `context`.
template <class Step> void onceAfter(int ms, QObject* context, Step step)
{
    QTimer::singleShot(std::max(0, ms), context, std::move(step));
}

bool lastsUnderAMinute(uint16_t duration)
{
    return duration >= 1 && duration < kSecondsPerMinute;
}

} // namespace

HydStreamAdapter::HydStreamAdapter(HydStreamType streamType, unsigned short port, HydDeviceId deviceId,
                                   int alivePeriodMs, bool createSocket)
    : HydStreamAdapter(streamType, port, QString(), std::move(deviceId), alivePeriodMs, createSocket)
{
}

HydStreamAdapter::HydStreamAdapter(HydStreamType streamType, unsigned short port, QString ipAddress,
                                   HydDeviceId deviceId, int alivePeriodMs, bool createSocket)
    : m_hostAddress(ipAddress), m_deviceId(std::move(deviceId)), m_streamType(streamType),
      m_readBuffer(std::make_unique_for_overwrite<unsigned char[]>(kBufferSize)), m_processor(streamType),
      m_port(port), m_alivePeriodMs(std::max(1, alivePeriodMs)), m_clock(secondsSinceEpoch)
{
    // The test for the beginning of a message looks at two bytes, also after a read of one.
    std::fill_n(m_readBuffer.get(), 2, static_cast<unsigned char>(0));
    registerNvxMetaTypes();
    setSignalPowerSet({});
    prepare(createSocket);
}

HydStreamAdapter::~HydStreamAdapter()
{
    disConnectStreamConnections();
    if (m_socket != nullptr)
        m_socket->disconnect(this);
    m_aliveTimer.stop();
    stopStream();
    if (m_socket == nullptr)
        return;
    dropConnection();
    m_readBuffer.reset();
    if (m_socket->state() != QAbstractSocket::UnconnectedState)
        m_socket->abort();
    // The socket must outlive this destructor, which one of its own signals may have led to. Where no event
    // loop runs any more, as at the end of a thread, the dispatcher takes it along.
    m_socket->setParent(QAbstractEventDispatcher::instance(m_socket->thread()));
    m_socket->deleteLater();
    m_socket = nullptr;
}

void HydStreamAdapter::prepare(bool createSocket)
{
    if (!createSocket || m_socket != nullptr)
        return;
    m_socket = new QTcpSocket(this);
    createConnections();
}

void HydStreamAdapter::createConnections()
{
    if (m_socket == nullptr)
        return;
    constexpr auto kDirectOnce = static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::UniqueConnection);
    m_socket->setReadBufferSize(static_cast<qint64>(kBufferSize));
    if (m_duration == 0 && !m_aliveConnection)
        m_aliveConnection =
            connect(&m_aliveTimer, &QTimer::timeout, this, &HydStreamAdapter::streamAliveTimeOut);
    connect(m_socket, &QTcpSocket::readyRead, this, &HydStreamAdapter::readStream, kDirectOnce);
    connect(m_socket, &QTcpSocket::connected, this, &HydStreamAdapter::streamConnected, kDirectOnce);
    connect(m_socket, &QTcpSocket::connected, this, &HydStreamAdapter::handleSocketConnected, kDirectOnce);
    connect(m_socket, &QTcpSocket::errorOccurred, this, &HydStreamAdapter::handleStreamSocketError,
            kDirectOnce);
}

void HydStreamAdapter::disConnectStreamConnections()
{
    if (m_aliveConnection)
        disconnect(m_aliveConnection);
    if (m_socket == nullptr)
        return;
    disconnect(m_socket, &QTcpSocket::readyRead, this, &HydStreamAdapter::readStream);
    disconnect(m_socket, &QTcpSocket::connected, this, &HydStreamAdapter::handleSocketConnected);
}

bool HydStreamAdapter::isConnected() const
{
    return m_socket != nullptr && m_socket->state() == QAbstractSocket::ConnectedState;
}

bool HydStreamAdapter::isStreaming() const
{
    return m_isStreamingEnabled && isConnected();
}

QString HydStreamAdapter::strStreamType() const
{
    std::string text = streamTypeText(m_streamType);
    if (m_streamType == StreamSensor)
        text += sensStreamText(m_reqData);
    return QString::fromStdString(text);
}

std::array<unsigned char, 8> HydStreamAdapter::createStartMsg() const
{
    // Under a minute rounds up, above it rounds down. This is intended.
    const uint16_t minutes =
        lastsUnderAMinute(m_duration) ? uint16_t{1} : static_cast<uint16_t>(m_duration / kSecondsPerMinute);
    const auto high = [](uint16_t value) { return static_cast<unsigned char>(value >> 8); };
    const auto low = [](uint16_t value) { return static_cast<unsigned char>(value); };
    return {0x33, 0x2A, 0x00, 0x04, high(minutes), low(minutes), high(m_reqData), low(m_reqData)};
}

void HydStreamAdapter::setClock(Clock clock)
{
    m_clock = clock ? std::move(clock) : Clock(secondsSinceEpoch);
}

void HydStreamAdapter::updateDevAliasInfo(HydDeviceId const& devId)
{
    if (devId != m_deviceId)
        return;
    m_deviceId.setAlias(devId.alias());
    m_device.setAlias(devId.alias());
}

void HydStreamAdapter::resetSequences()
{
    m_lastHeaderSeq = 0;
    m_lastGapSeq = 0;
    m_eventSamples = 0;
}

// --- connecting

void HydStreamAdapter::connectStream()
{
    if (m_socket == nullptr || isConnected())
        return;
    if (m_socket->state() != QAbstractSocket::UnconnectedState)
        m_socket->abort();
    // The rest of a message that a lost connection cut off would swallow the first bytes of the new one.
    // The ring holds bytes only where this is called out of a slot on data of the old connection.
    const uint64_t skippedBefore = skippedBytes();
    m_processor.reset();
    m_forgottenBytes += m_rxBuffer.byteCount();
    m_rxBuffer.clear();
    logSkipped(skippedBytes() - skippedBefore);
    m_socket->connectToHost(m_hostAddress, m_port, QIODevice::ReadWrite);
}

void HydStreamAdapter::handleSocketConnected()
{
    if (!m_isStreamingEnabled && !m_startOnConnect.exchange(false))
        return;
    startStream();
}

void HydStreamAdapter::disconnectStream()
{
    if (m_socket != nullptr)
        dropConnection();
}

// No streamStopped and no stop message on this path. This is intended.
void HydStreamAdapter::dropConnection()
{
    resetSequences();
    m_isStreamingEnabled.exchange(false);
    m_startOnConnect.exchange(false);
    m_aliveRestart.exchange(false);
    stopAliveTimerLater();
    if (m_socket->state() != QAbstractSocket::UnconnectedState)
        m_socket->disconnectFromHost();
    if (m_socket->state() != QAbstractSocket::ClosingState)
        return;
    // The socket may tell of a dead link at once, and a receiver of that may delete this adapter.
    QPointer<HydStreamAdapter> self(this);
    m_socket->flush();
    if (!self.isNull())
        m_socket->abort();
}

// --- starting

void HydStreamAdapter::startStream()
{
    if (m_socket == nullptr)
        return;
    // The sequence of the gap check stays, so that a restart may report one gap. This is intended.
    m_lastHeaderSeq = 0;
    m_eventSamples = 0;
    if (isConnected()) {
        startConnected();
        return;
    }

    const auto state = m_socket->state();
    const auto error = m_socket->error();
    const bool enabled = m_isStreamingEnabled;
    const bool connects = enabled || state != QAbstractSocket::ConnectingState;
    if (!enabled && state == QAbstractSocket::ClosingState)
        m_socket->abort();
    // An attempt may fail at once, and a receiver of the error may delete this adapter.
    QPointer<HydStreamAdapter> self(this);
    if (connects)
        connectStream();
    if (self.isNull())
        return;
    if (!enabled)
        m_startOnConnect.exchange(true);
    qDebug() << "Attempt to start stream before port is connected!: " << m_hostAddress.toString() << ", "
             << "m_socket->state():" << state << "m_socket->error():" << error
             << "m_isStreamingEnabled:" << (enabled ? "true" : "false") << strStreamType()
             << m_deviceId.serialNo();
}

void HydStreamAdapter::startConnected()
{
    m_isStreamingEnabled.exchange(true);
    const auto message = createStartMsg();
    m_socket->write(reinterpret_cast<const char*>(message.data()), message.size());
    QPointer<HydStreamAdapter> self(this);
    Q_EMIT streamStarted(m_aliveRestart);
    if (self.isNull())
        return;
    m_aliveRestart.exchange(false);
    if (m_aliveConnection && m_duration == 0 && !m_aliveTimer.isActive())
        onceAfter(1, this, [this] { startAliveTimer(); });
    if (m_streamType == StreamSensor && lastsUnderAMinute(m_duration))
        onceAfter(m_duration * 1000, this, [this] { stopAfterDuration(); });
}

void HydStreamAdapter::startStreamDevId(HydDeviceId const& devId, int delay)
{
    if (m_isStreamingEnabled || devId != m_deviceId || m_socket == nullptr)
        return;
    if (m_socket->state() == QAbstractSocket::ConnectingState || isConnected())
        startStream();
    else
        onceAfter(delay, this, [this] { reconnectAndStart(true); });
}

void HydStreamAdapter::startSensorsStreamDevId(HydDeviceId const& devId, int delay, uint16_t duration)
{
    QPointer<HydStreamAdapter> self(this);
    setDuration(duration);
    if (!self.isNull())
        startStreamDevId(devId, delay);
}

void HydStreamAdapter::delayStartStream()
{
    delayConnectStream(100, true);
}

void HydStreamAdapter::delayConnectStream(int ms, bool start)
{
    onceAfter(ms, this, [this, start] { reconnectAndStart(start); });
}

void HydStreamAdapter::reconnectAndStart(bool start)
{
    if (start && isConnected()) {
        startByType();
        return;
    }
    QPointer<HydStreamAdapter> self(this);
    // Connecting empties the socket of the lines that an epoch stream has yet to read.
    if (auto* epoch = asEpochStream(); epoch != nullptr && start)
        epoch->readStream();
    if (self.isNull())
        return;
    connectStream();
    if (start && !self.isNull())
        onceAfter(100, this, [this] { startRetryCheck(); });
}

void HydStreamAdapter::startRetryCheck()
{
    if (isConnected())
        startByType();
    else if (m_socket != nullptr && m_socket->state() == QAbstractSocket::ConnectingState)
        onceAfter(300, this, [this] { startRetryFinal(); });
    else
        reportStartFailure();
}

void HydStreamAdapter::startRetryFinal()
{
    if (isConnected())
        startByType();
    else
        reportStartFailure();
}

// By the type and not by dispatch: an epoch adapter of another type starts like any stream. Intended.
HydEpochStreamAdapter* HydStreamAdapter::asEpochStream()
{
    return m_streamType == StreamEpoch ? qobject_cast<HydEpochStreamAdapter*>(this) : nullptr;
}

void HydStreamAdapter::startByType()
{
    if (auto* epoch = asEpochStream())
        epoch->startStream();
    else
        startStream();
}

void HydStreamAdapter::reportStartFailure()
{
    Q_EMIT streamErrorMsg(QStringLiteral("Streaming start failed: ") + strStreamType() +
                          QStringLiteral(", ") + QString::fromStdString(m_deviceId.friendlyName()));
}

// --- stopping

void HydStreamAdapter::stopStream()
{
    if (m_socket == nullptr)
        return;
    resetSequences();
    stopAliveTimerLater();
    QPointer<HydStreamAdapter> self(this);
    // A socket that the recorder has just closed is open but no longer valid.
    if (m_socket->isOpen() && m_socket->isValid()) {
        m_socket->write(reinterpret_cast<const char*>(stopStreamMsg.data()), stopStreamMsg.size());
        // Flushing a socket that isn't connected yet would abort it; the bytes leave upon connection.
        if (isConnected())
            m_socket->flush();
        // A link that turns out to be dead is told at once, and a receiver of that may delete this adapter.
        if (self.isNull())
            return;
    }
    m_isStreamingEnabled.exchange(false);
    m_startOnConnect.exchange(false);
    m_aliveRestart.exchange(false);
    Q_EMIT streamStopped();
}

void HydStreamAdapter::stopStreamDevId(HydDeviceId const& devId)
{
    if (devId == m_deviceId && m_socket != nullptr && m_socket->state() != QAbstractSocket::UnconnectedState)
        stopStream();
}

void HydStreamAdapter::setTimeToStopStream(int ms)
{
    onceAfter(ms, this, [this] { stopAfterDuration(); });
}

void HydStreamAdapter::stopAfterDuration()
{
    if (m_streamType != StreamSensor || lastsUnderAMinute(m_duration))
        stopStream();
}

// --- duration and alive timer

void HydStreamAdapter::setDuration(unsigned short seconds)
{
    if (seconds != m_duration)
        applyDuration(seconds);
}

void HydStreamAdapter::applyDuration(uint16_t seconds)
{
    m_duration = seconds;
    if (seconds == 0) {
        if (!m_aliveConnection)
            m_aliveConnection =
                connect(&m_aliveTimer, &QTimer::timeout, this, &HydStreamAdapter::streamAliveTimeOut);
        if (!m_aliveTimer.isActive())
            onceAfter(500, this, [this] { startAliveTimer(); });
        Q_EMIT streamIsContinuous();
        return;
    }
    if (m_aliveConnection)
        disconnect(m_aliveConnection);
    if (m_aliveTimer.isActive())
        onceAfter(1, this, [this] { stopAliveTimer(); });
}

void HydStreamAdapter::startAliveTimer()
{
    if (!m_aliveTimer.isActive())
        m_aliveTimer.start(m_alivePeriodMs);
}

void HydStreamAdapter::stopAliveTimer()
{
    if (m_aliveTimer.isActive())
        m_aliveTimer.stop();
}

// The timer follows a start or a stop a moment later, whatever came in between: a start right behind a stop
// loses its alive check, and a stop right behind a first start leaves the timer running. This is intended.
void HydStreamAdapter::stopAliveTimerLater()
{
    if (m_aliveTimer.isActive())
        onceAfter(1, this, [this] { stopAliveTimer(); });
}

void HydStreamAdapter::streamAliveTimeOut()
{
    m_aliveRestart.exchange(true);
    const bool hasData = m_dataAlive && m_isStreamingEnabled && m_lastReadSecs != 0;
    if ((!m_isStreamingEnabled || !isConnected()) && m_duration == 0) {
        onceAfter(10, this, [this] { reconnectAndStart(true); });
        return;
    }

    if (hasData && isStale())
        m_dataAlive = false;
    else if (m_dataAlive)
        return;

    if (!m_isStreamingEnabled || m_socket == nullptr)
        return;
    const auto state = m_socket->state();
    if (state == QAbstractSocket::ConnectingState || state == QAbstractSocket::UnconnectedState) {
        startStream();
        return;
    }
    // A negative number is "no error": the link stands, the recorder only needs the start again.
    if (!m_socket->peerAddress().isNull() && m_socket->error() < 0) {
        startStream();
        return;
    }
    Q_EMIT streamConnectionLost(m_socket->error(), m_deviceId);
}

bool HydStreamAdapter::isStale() const
{
    int64_t limit = kMinStaleSeconds;
    if (m_streamType == StreamSpectrum || m_streamType == StreamSpectrumScan) {
        const HydJobSettings& settings = m_device.jobSettings();
        const float interval = HydJobSettings::calcFftUpdateRate(
            static_cast<float>(settings.fftAccum()), static_cast<float>(settings.fftRate()),
            static_cast<float>(FFT_Params_WAV.overlapLength()));
        // Bounded ahead of the conversion: settings of a device may ask for any interval.
        constexpr float kMaxSeconds = 1e9F;
        limit = std::max(limit, static_cast<int64_t>(std::min(2.0F * interval, kMaxSeconds)));
    }
    const int64_t now = m_clock();
    return m_lastReadSecs < now && now - m_lastReadSecs > limit;
}

// --- socket errors

void HydStreamAdapter::handleSocketError()
{
    if (m_socket == nullptr)
        return;
    if (!m_isStreamingEnabled) {
        Q_EMIT streamDisconnected(m_socket->error());
        return;
    }
    QPointer<HydStreamAdapter> self(this);
    Q_EMIT socketError(m_socket->error());
    if (self.isNull())
        return;
    m_dataAlive = false;
    QMetaObject::invokeMethod(this, &HydStreamAdapter::connectStream, Qt::QueuedConnection);
}

void HydStreamAdapter::handleStreamSocketError(QAbstractSocket::SocketError err)
{
    QPointer<HydStreamAdapter> self(this);
    handleSocketError();
    if (self.isNull())
        return;
    // The second time for the same error while streaming. This is intended.
    Q_EMIT socketError(err);
    if (self.isNull() || m_socket == nullptr)
        return;
    const auto state = m_socket->state();
    if (state == QAbstractSocket::ConnectingState || state == QAbstractSocket::UnconnectedState)
        return;
    if (m_socket->peerAddress().isNull())
        Q_EMIT streamConnectionLost(m_socket->error(), m_deviceId);
}
