#include "NvxQtSimulator/SensorStream.h"

#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <cmath>
#include <numbers>

namespace {

constexpr int kReadingPaceMs = 1000;
constexpr uint32_t kFullTurn = 360;
// Earth's magnetic field in tenths of a microtesla: what points north, and what points down.
constexpr double kFieldNorth = 200.0;
constexpr int16_t kFieldDown = 430;
constexpr uint16_t kMillivolts = 7400;
constexpr int16_t kLoadMilliamperes = 120;
constexpr int16_t kChargeMilliamperes = -350;

} // namespace

SensorStream::SensorStream(QTcpSocket* socket, RecorderState* state, QObject* parent)
    : StreamSession(socket, state, StreamSensor, parent)
{
}

void SensorStream::begin()
{
    m_messages = 0;
    m_hostStart = state().deviceTime() - state().clockOffset();
    setPace(state().settings().unpaced ? 0 : kReadingPaceMs);
    if (!state().settings().unpaced)
        proceed();
}

bool SensorStream::isFinished() const
{
    const uint32_t limit = state().settings().streamSeconds;
    return limit != 0 && m_messages >= limit;
}

void SensorStream::proceed()
{
    if (!isRunning() || isFinished() || isReaderSlow())
        return;
    sendReading();
    if (state().settings().unpaced)
        proceedSoon();
}

void SensorStream::sendReading()
{
    const auto time = static_cast<uint32_t>(m_hostStart + m_messages + state().clockOffset());
    const uint16_t bits = requestedBits();
    auto payload = std::make_shared<HydStatusDataPayload>();
    stKEY_CHUNK_V1 key;
    key.time = time;
    key.seqLow = m_messages;
    payload->setEventKey(std::make_shared<HydEventKeyChunkV1>(&key));
    if (bits & SensTempHumidity) {
        stSTATUS_CHUNK_V0 status;
        status.temperature = state().identity().temperature;
        status.humidity = static_cast<int16_t>(state().identity().humidity);
        status.rollover = state().rollover();
        payload->setStatusChunk(std::make_shared<HydStreamStatusChunkV0>(&status));
    }
    if (bits & SensAccMag)
        addMotion(*payload, time);
    if (bits & SensTimeSync) {
        // Free running, as the command channel tells of the clock.
        stTIME_SYNC_CHUNK_V0 sync;
        sync.time = time;
        payload->setTimeSyncChunk(std::make_shared<HydTimeSyncChunk>(&sync));
    }
    if (bits & SensTimeBattery)
        addBattery(*payload, time);
    if (bits & SensTriggers)
        addTrigger(*payload, time);
    ++m_messages;
    sendPayload(payload);
}

void SensorStream::addMotion(HydStatusDataPayload& payload, uint32_t time) const
{
    const uint32_t degrees = m_messages % kFullTurn;
    stHEADING_CHUNK_V0 heading;
    heading.time = time;
    heading.heading = static_cast<uint16_t>(degrees * 10);
    heading.pitch = 15;
    heading.roll = -20;
    payload.setHeadChunk(std::make_shared<HydStreamHeadStatusChunkV0>(&heading));

    const double turn = 2.0 * std::numbers::pi * degrees / kFullTurn;
    const auto forward = static_cast<int16_t>(std::lround(kFieldNorth * std::cos(turn)));
    const auto starboard = static_cast<int16_t>(std::lround(-kFieldNorth * std::sin(turn)));
    const stACC_MAG_CHUNK_V0 motion{{}, {26, -35, 999}, {forward, starboard, kFieldDown}};
    payload.setAccMagChunk(std::make_shared<HydAccMagChunk>(&motion));
}

void SensorStream::addBattery(HydStatusDataPayload& payload, uint32_t time) const
{
    const RecorderIdentity& who = state().identity();
    stBATTERY_CHUNK_V0 battery;
    battery.time = time;
    battery.millivolts = kMillivolts;
    battery.milliamperes = who.batteryState == BattCharging ? kChargeMilliamperes : kLoadMilliamperes;
    battery.percent = who.batteryPercent;
    battery.state = who.batteryState;
    battery.temperature = who.temperature;
    payload.setBatteryChunk(std::make_shared<HydBatteryChunk>(&battery));
}

/// The enabled trigger of the lowest number, and whether it is active; number 0 without one.
void SensorStream::addTrigger(HydStatusDataPayload& payload, uint32_t time) const
{
    stTRIGGER_CHUNK_V0 record;
    record.time = time;
    for (const auto& trigger : state().triggers()) {
        const auto known = std::dynamic_pointer_cast<HydTrigger_5_6>(trigger);
        if (!known || known->enabled() == 0)
            continue;
        record.trigNum = known->trigNum();
        record.trigState = state().isTriggerActive(known->trigNum()) ? 1 : 0;
        break;
    }
    payload.setTriggerChunk(std::make_shared<HydTriggerChunk>(&record));
}
