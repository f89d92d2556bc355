#include "NvxQtSimulator/SlowStreams.h"

#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <QDateTime>

#include <algorithm>

namespace {

constexpr unsigned kMaxTransforms = 4;
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

SpectrumStream::SpectrumStream(QTcpSocket* socket, RecorderState* state, QObject* parent)
    : StreamSession(socket, state, StreamSpectrum, parent)
{
}

void SpectrumStream::begin()
{
    const HydJobSettings& job = state().jobSettings();
    m_maker.emplace(state().settings().signal, job.fftRate(), job.fftPoints(), job.fftPointsBtw());
    m_startTime = static_cast<uint32_t>(state().deviceTime());
    m_startSample = state().currentSample();
    m_second = -1;
    m_spectra = 0;
    m_clock.start();
    const double seconds = double(job.fftAccum()) * job.fftPointsBtw() / uint32_t{job.fftRate()};
    setPace(static_cast<int>(std::clamp(seconds * 1000.0, 1.0, 3600000.0)));
}

void SpectrumStream::proceed()
{
    if (const int64_t second = m_clock.elapsed() / 1000; second != m_second) {
        m_second = second;
        m_spectrumInEvent = 0;
        sendHeader();
    }
    sendSpectrum();
}

void SpectrumStream::sendHeader()
{
    const HydJobSettings& job = state().jobSettings();
    const RecorderIdentity& who = state().identity();
    const stKEY_CHUNK_V1 key = keyRecord(static_cast<uint32_t>(m_startTime + m_second),
                                         m_startSample + m_second * int64_t{job.fftRate()});
    stDEVICE_CHUNK_V1 device;
    device.devType = who.type;
    device.serial = who.serial;
    device.sensitivity = who.sensitivity;
    stSTATUS_CHUNK_V0 status;
    status.temperature = who.temperature;
    status.humidity = static_cast<int16_t>(who.humidity);
    status.rollover = state().rollover();
    stFFT_SETUP_CHUNK_V1 setup;
    setup.sampleRate = job.fftRate();
    setup.points = static_cast<uint16_t>(job.fftPoints());
    setup.refLevel = static_cast<int16_t>(job.fftRef());
    setup.procType = job.fftProcType();
    setup.pointsBtw = static_cast<uint16_t>(job.fftPointsBtw());
    setup.accum = static_cast<uint16_t>(job.fftAccum());
    setup.weight = static_cast<uint16_t>(job.fftWeight());
    stAMPLITUDE_CHUNK_V0 scaling;
    scaling.bitsPerSample = 8;
    scaling.maxValue = 255;
    scaling.maxMicrovolts = 3000000;
    scaling.minMicrovolts = -3000000;
    sendPayload(std::make_shared<HydStreamEventHeaderPayload>(
        std::make_shared<HydEventKeyChunkV1>(&key),
        std::vector<std::shared_ptr<HydDeviceInfoChunk const>>{
            std::make_shared<HydDeviceInfoChunkV1>(&device)},
        std::vector<std::shared_ptr<HydStreamStatusChunk const>>{
            std::make_shared<HydStreamStatusChunkV0>(&status)},
        HydStreamSetupContainer(
            std::shared_ptr<HydFftSetupChunk const>(std::make_shared<HydFftSetupChunkV1>(&setup))),
        std::vector<std::shared_ptr<HydAmplScalingChunk const>>{
            std::make_shared<HydAmplScalingChunkV0>(&scaling)},
        static_cast<unsigned char>(1), nullptr));
}

void SpectrumStream::sendSpectrum()
{
    const HydJobSettings& job = state().jobSettings();
    const uint64_t step = uint64_t{job.fftAccum()} * job.fftPointsBtw();
    const std::vector<uint8_t> bins = m_maker->bins(static_cast<uint64_t>(m_startSample) + m_spectra++ * step,
                                                    std::min(job.fftAccum(), kMaxTransforms), job.fftRef());
    std::shared_ptr<unsigned char[]> bytes(new unsigned char[bins.size()]);
    std::copy(bins.begin(), bins.end(), bytes.get());
    const stKEY_CHUNK_V1 key = keyRecord(static_cast<uint32_t>(m_startTime + m_second),
                                         m_startSample + m_second * int64_t{job.fftRate()});
    auto payload = std::make_shared<HydStreamDataPayload>(
        std::make_shared<HydEventKeyChunkV1>(&key),
        std::make_shared<HydStreamDataChunkV0>(m_spectrumInEvent++, static_cast<unsigned char>(1),
                                               static_cast<unsigned char>(1),
                                               static_cast<unsigned short>(bins.size()), bytes, bins.size()));
    payload->streamType = StreamSpectrum;
    sendPayload(payload);
}

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
