#include "NvxQtCommon/replay/NvxDataFile.h"

#include "NvxQtCommon/replay/NvxDataThread.h"

#include <QPointer>

#include <algorithm>
#include <utility>

namespace {

constexpr FFTMode kSlowFftMode{3};
constexpr WAVEMode kSlowWaveMode{1};
constexpr qint64 kSlowPeriod = 50;
constexpr qint64 kAdjacentPeriod = 20;
constexpr qint64 kShortPeriod = 5;

template <class Payload> qint64 timeOf(const std::shared_ptr<Payload>& payload)
{
    return payload && payload->eventKey() ? static_cast<qint64>(payload->eventKey()->eventId()) : 0;
}

double tickFactor(qint8 ticksPerSecond)
{
    switch (ticksPerSecond) {
    case 4:
        return 0.25;
    case 2:
        return 0.5;
    default:
        return 1.0;
    }
}

} // namespace

NvxDataFile::NvxDataFile(QObject* parent) : QObject(parent)
{
    registerNvxMetaTypes();
}

NvxDataFile::~NvxDataFile()
{
    letGoOfThread();
}

// --- control

bool NvxDataFile::isReading() const
{
    return m_thread != nullptr && !m_thread->isFinished();
}

void NvxDataFile::quitThread()
{
    if (isReading())
        m_thread->quit();
}

void NvxDataFile::pauseThread()
{
    if (isReading())
        m_thread->pause();
}

void NvxDataFile::resumeThread()
{
    if (isReading())
        m_thread->resume();
}

// --- pace

qint64 NvxDataFile::wholeMilliseconds(double ms)
{
    constexpr double most = 4611686018427387904.0; // 2^62
    return static_cast<qint64>(std::clamp(ms, -most, most));
}

void NvxDataFile::calcTimerTime(int channels)
{
    double velocity = 1.0;
    switch (m_replayVel) {
    case ReplayNormal:
        break;
    case ReplayDouble:
        velocity = 0.5;
        break;
    case ReplayQuad:
        velocity = 0.25;
        break;
    case ReplayMax:
        if (m_regFFTMode == kSlowFftMode || m_regWAVEMode == kSlowWaveMode)
            m_timerTime = kSlowPeriod;
        else
            m_timerTime = m_adjacent ? kAdjacentPeriod : kShortPeriod;
        return;
    default:
        return;
    }
    if (m_ticksPerSecond == 0) {
        m_timerTime = wholeMilliseconds(static_cast<double>(m_baseTime) * velocity);
        return;
    }
    const double period = static_cast<double>(channels) * static_cast<double>(m_baseTime);
    m_timerTime = wholeMilliseconds(period * tickFactor(m_ticksPerSecond) * velocity);
}

void NvxDataFile::handOverTimerTime()
{
    if (isReading())
        m_thread->setTimerTime(m_timerTime);
}

void NvxDataFile::setReplayVel(ReplayFILEVelocity vel, int channels)
{
    m_replayVel = vel;
    calcTimerTime(channels);
    handOverTimerTime();
}

void NvxDataFile::setAdjacent(bool adjacent, int channels)
{
    m_adjacent = adjacent;
    calcTimerTime(channels);
    handOverTimerTime();
    writeEpochBuff(&m_epochLog, &m_epochCarry, m_adjacent);
}

// --- epoch log

HydDeviceId NvxDataFile::devId(int index) const
{
    // The wrong way round on purpose: what lies inside of the list is not looked up.
    if (m_channelDevices.isEmpty() || index <= m_channelDevices.size())
        return HydDeviceId();
    return m_channelDevices.value(index);
}

void NvxDataFile::handleTrigActiveStr(QString mes, HydDeviceId devId)
{
    addEpochMessg(devId, {std::move(mes)});
}

void NvxDataFile::addEpochMessg(const HydDeviceId& devId, const QList<QString>& lines)
{
    if (const auto log = m_epochLog.find(devId); log != m_epochLog.end())
        log->append(lines);
}

NvxDataFile::EpochLog NvxDataFile::epochLogLists() const
{
    EpochLog lists;
    for (const HydDeviceId& id : m_channelDevices) {
        if (const auto log = m_epochLog.constFind(id); log != m_epochLog.constEnd())
            lists.insert(id, *log);
    }
    return lists;
}

void NvxDataFile::clearEpochLog()
{
    m_epochLog.clear();
    m_epochCarry.clear();
}

void NvxDataFile::writeEpochBuff(EpochLog* current, EpochLog* carry, bool adjacent)
{
    if (carry == nullptr || carry->isEmpty() || (adjacent && current == nullptr))
        return;
    if (!adjacent && carry->size() != m_channelDevices.size())
        carry->clear();
    for (const HydDeviceId& id : m_channelDevices) {
        if (!adjacent && (current == nullptr || !current->contains(id))) {
            carry->clear();
            return;
        }
        const auto carried = carry->find(id);
        if (carried == carry->end())
            continue;
        const QList<QString> lines = std::exchange(*carried, {});
        if (adjacent && !lines.isEmpty())
            (*current)[id].append(lines);
    }
}

// --- reader

void NvxDataFile::setConnections()
{
    NvxDataThread* const thread = m_thread;
    if (thread == nullptr)
        return;
    thread->setTimerTime(m_timerTime);
    connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    connect(thread, &QThread::finished, this, [this, thread] {
        // It may have ended and been let go before this came.
        if (m_thread != thread)
            return;
        m_thread = nullptr;
        const QPointer<NvxDataFile> self(this);
        Q_EMIT streamFileFinished(m_curTime);
        if (self)
            Q_EMIT threadFinished();
    });
    connect(thread, &NvxDataThread::streamHeaderReady, this, &NvxDataFile::handleHdrReady);
    connect(thread, &NvxDataThread::streamDataReady, this, &NvxDataFile::handleDataReady);
    connect(thread, &NvxDataThread::streamNotify, this, &NvxDataFile::handleNotify);
    connect(thread, &NvxDataThread::signalTotalPower, this, &NvxDataFile::handleTotalPower);
}

void NvxDataFile::letGoOfThread()
{
    if (m_thread == nullptr)
        return;
    m_thread->disconnect(this);
    std::exchange(m_thread, nullptr)->retire();
}

void NvxDataFile::handleHdrReady(std::shared_ptr<HydStreamEventHeaderPayload> pHeader, HydDeviceId devId,
                                 std::shared_ptr<HydDevice> dev)
{
    const qint64 time = timeOf(pHeader);
    const QPointer<NvxDataFile> self(this);
    Q_EMIT streamHeaderReady(std::move(pHeader), std::move(devId), std::move(dev));
    if (self)
        m_curTime = time;
}

void NvxDataFile::handleDataReady(std::shared_ptr<HydStreamDataPayload> pdata, HydDeviceId devId)
{
    const qint64 time = timeOf(pdata);
    const QPointer<NvxDataFile> self(this);
    Q_EMIT streamDataReady(std::move(pdata), std::move(devId));
    if (self)
        m_curTime = time;
}

void NvxDataFile::handleNotify(std::shared_ptr<HydStreamNotifyPayload> pnotify, HydDeviceId devId)
{
    Q_EMIT streamNotify(std::move(pnotify), std::move(devId));
}

void NvxDataFile::handleTotalPower(const HydDeviceId& devId, double val)
{
    Q_EMIT signalTotalPower(devId, val);
}
