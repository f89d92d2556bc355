#include "NvxQtSimulator/SlowStreams.h"

#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <QDateTime>

#include <algorithm>

namespace {

constexpr int kSensorPaceMs = 1000;
constexpr int kEpochPaceMs = 1000;

stKEY_CHUNK_V1 keyRecord(uint32_t time, int64_t sequence)
{
    stKEY_CHUNK_V1 key;
    key.time = time;
    key.seqHigh = static_cast<uint32_t>(static_cast<uint64_t>(sequence) >> 32);
    key.seqLow = static_cast<uint32_t>(sequence);
    return key;
}

} // namespace

SensorStream::SensorStream(QTcpSocket* socket, RecorderState* state, QObject* parent)
    : StreamSession(socket, state, StreamSensor, parent)
{
}

void SensorStream::begin()
{
    m_messages = 0;
    setPace(kSensorPaceMs);
    proceed();
}

void SensorStream::proceed()
{
    const RecorderIdentity& who = state().identity();
    const auto time = static_cast<uint32_t>(state().deviceTime());
    const uint16_t bits = requestedBits();
    auto payload = std::make_shared<HydStatusDataPayload>();
    const stKEY_CHUNK_V1 key = keyRecord(time, m_messages);
    payload->setEventKey(std::make_shared<HydEventKeyChunkV1>(&key));
    if (bits & SensTempHumidity) {
        stSTATUS_CHUNK_V0 status;
        status.temperature = who.temperature;
        status.humidity = static_cast<int16_t>(who.humidity);
        status.rollover = state().rollover();
        payload->setStatusChunk(std::make_shared<HydStreamStatusChunkV0>(&status));
    }
    if (bits & SensAccMag) {
        // The recorder turns slowly: a degree each second.
        stHEADING_CHUNK_V0 heading;
        heading.time = time;
        heading.heading = static_cast<uint16_t>(m_messages % 360 * 10);
        heading.pitch = 15;
        heading.roll = -20;
        payload->setHeadChunk(std::make_shared<HydStreamHeadStatusChunkV0>(&heading));
        const stACC_MAG_CHUNK_V0 motion{{}, {26, -35, 999}, {200, -30, 430}};
        payload->setAccMagChunk(std::make_shared<HydAccMagChunk>(&motion));
    }
    if (bits & SensTimeSync) {
        stTIME_SYNC_CHUNK_V0 sync;
        sync.time = time;
        payload->setTimeSyncChunk(std::make_shared<HydTimeSyncChunk>(&sync));
    }
    if (bits & SensTimeBattery) {
        stBATTERY_CHUNK_V0 battery;
        battery.time = time;
        battery.millivolts = 7400;
        battery.milliamperes = 120;
        battery.percent = who.batteryPercent;
        battery.state = who.batteryState;
        battery.temperature = who.temperature;
        payload->setBatteryChunk(std::make_shared<HydBatteryChunk>(&battery));
    }
    if (bits & SensTriggers) {
        stTRIGGER_CHUNK_V0 trigger;
        trigger.time = time;
        payload->setTriggerChunk(std::make_shared<HydTriggerChunk>(&trigger));
    }
    ++m_messages;
    sendPayload(payload);
}

EpochStream::EpochStream(QTcpSocket* socket, RecorderState* state, QObject* parent)
    : StreamSession(socket, state, StreamEpoch, parent)
{
    // Not before it is whole.
    QMetaObject::invokeMethod(
        this, [this] { start(0, 0); }, Qt::QueuedConnection);
}

void EpochStream::begin()
{
    setPace(kEpochPaceMs);
    proceed();
}

void EpochStream::proceed()
{
    const unsigned period = state().settings().epochPeriod;
    const unsigned length = std::min(state().settings().epochSeconds, period - 1);
    if (m_seconds % period == 0) {
        ++m_epoch;
        sendLine(true);
    } else if (m_seconds % period == length) {
        sendLine(false);
    }
    ++m_seconds;
}

void EpochStream::sendLine(bool started)
{
    QString line = QStringLiteral("%1, SN %2, Epoch %3, ")
                       .arg(QDateTime::fromSecsSinceEpoch(state().deviceTime(), Qt::UTC)
                                .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")))
                       .arg(state().identity().serial)
                       .arg(m_epoch);
    if (started)
        line += QStringLiteral("Seq %1, 10-1000 > 5000uPa, %2s\n")
                    .arg(m_lines++)
                    .arg(state().settings().epochSeconds);
    else
        line += QStringLiteral("Ended\n");
    sendFrame(line.toUtf8());
}
