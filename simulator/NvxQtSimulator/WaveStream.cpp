#include "NvxQtSimulator/WaveStream.h"

#include "NvxQtCommon/contract/stream/HydStreamMessage.h"

#include <QtEndian>

#include <algorithm>
#include <limits>

namespace {

constexpr int64_t kSecond = 1000000000;
// Frame header, key chunk, data chunk's head, checksum.
constexpr qsizetype kKeyBody = 16;
constexpr qsizetype kDataHead = 8;
constexpr qsizetype kChunkHead = 6;
constexpr qsizetype kBeforeSamples =
    static_cast<qsizetype>(HydStreamMessage::kHeaderSize) + kChunkHead + kKeyBody + kChunkHead + kDataHead;
constexpr qsizetype kAfterSamples = static_cast<qsizetype>(HydStreamMessage::kChecksumSize);
constexpr int64_t kMaxSampleBytes = static_cast<int64_t>(HydStreamMessage::kMaxChunkBytes) - 1024;
// A process that slept longer doesn't send what it missed.
constexpr int64_t kMaxCatchUpSeconds = 5;
// Blocks between two visits of the event loop where nothing else paces the stream.
constexpr int kBlocksPerTurn = 32;

uchar* putWord(uchar* at, auto value)
{
    qToBigEndian(value, at);
    return at + sizeof value;
}

} // namespace

WaveStream::WaveStream(QTcpSocket* socket, RecorderState* state, QObject* parent)
    : StreamSession(socket, state, StreamWave, parent)
{
}

void WaveStream::begin()
{
    m_events = 0;
    m_clockOffset = state().clockOffset();
    beginEvent(state().deviceTime(), state().currentSample());
    restartPace();
    sendHeader();
    setPace(state().settings().unpaced ? 0 : static_cast<int>(1000 / state().settings().blocksPerSecond));
}

void WaveStream::restartPace()
{
    m_paceClock.start();
    m_paceSamples = 0;
}

bool WaveStream::isFinished() const
{
    const uint32_t limit = state().settings().streamSeconds;
    return limit != 0 && m_events >= limit && m_position >= m_event.samples;
}

int64_t WaveStream::samplesDue() const
{
    const int64_t elapsed = m_paceClock.nsecsElapsed();
    return elapsed / kSecond * m_rate + elapsed % kSecond * m_rate / kSecond - m_paceSamples;
}

void WaveStream::proceed()
{
    if (!isRunning())
        return;
    if (state().settings().unpaced)
        proceedUnpaced();
    else
        proceedPaced();
}

void WaveStream::proceedPaced()
{
    while (isRunning() && !isFinished() && samplesDue() >= nextBlockSize())
        sendBlock(isReaderSlow() || samplesDue() > kMaxCatchUpSeconds * m_rate);
}

void WaveStream::proceedUnpaced()
{
    for (int i = 0; i < kBlocksPerTurn; ++i) {
        if (!isRunning() || isFinished() || isReaderSlow())
            return;
        sendBlock(false);
    }
    proceedSoon();
}

void WaveStream::beginEvent(int64_t time, int64_t sequence)
{
    const bool changedRate = m_rate != state().waveRate() || !m_source;
    m_rate = state().waveRate();
    m_format = state().sampleFormat();
    if (changedRate) {
        m_source.emplace(state().settings().signal, m_rate);
        restartPace();
    }
    m_event = {static_cast<uint32_t>(time), sequence, m_rate};
    m_position = 0;
    ++m_events;
}

void WaveStream::nextEvent()
{
    const int64_t offset = state().clockOffset();
    int64_t time = int64_t{m_event.time} + 1 + offset - m_clockOffset;
    m_clockOffset = offset;
    int64_t sequence = m_event.sequence + m_event.samples;
    if (const auto samples = link().strike(Fault::SequenceGap))
        sequence += *samples > 0 ? *samples : m_rate;
    if (const auto samples = link().strike(Fault::SequenceBack))
        sequence -= *samples > 0 ? *samples : m_rate;
    if (const auto rate = link().strike(Fault::RateChange))
        state().setWaveRate(*rate > 0 ? static_cast<uint32_t>(*rate) : std::max(1U, m_rate / 2));
    if (const auto step = link().strike(Fault::RolloverUp))
        state().setRollover(static_cast<uint8_t>(state().rollover() + (*step > 0 ? *step : 1)));
    if (const auto step = link().strike(Fault::RolloverDown))
        state().setRollover(static_cast<uint8_t>(state().rollover() - (*step > 0 ? *step : 1)));
    beginEvent(time, sequence);
    sendHeader();
}

void WaveStream::sendHeader()
{
    const RecorderIdentity& who = state().identity();
    stKEY_CHUNK_V1 key;
    key.time = m_event.time;
    key.seqHigh = static_cast<uint32_t>(static_cast<uint64_t>(m_event.sequence) >> 32);
    key.seqLow = static_cast<uint32_t>(m_event.sequence);

    stDEVICE_CHUNK_V1 device;
    device.devType = who.type;
    device.serial = who.serial;
    device.sensitivity = who.sensitivity;
    stSTATUS_CHUNK_V0 status;
    status.temperature = who.temperature;
    status.humidity = static_cast<int16_t>(who.humidity);
    status.rollover = state().rollover();
    stAMPLITUDE_CHUNK_V0 scaling;
    const unsigned bits = m_format.bytesPerSample * 8;
    scaling.bitsPerSample = static_cast<uint8_t>(bits);
    scaling.maxValue = static_cast<int32_t>((int64_t{1} << (bits - 1)) - 1);
    scaling.minValue = static_cast<int32_t>(-(int64_t{1} << (bits - 1)));
    scaling.maxMicrovolts = RecorderSettings::kFullScaleMicrovolts;
    scaling.minMicrovolts = -RecorderSettings::kFullScaleMicrovolts;

    // With several channels the recorder is their master, and each bears a serial number behind its own.
    std::shared_ptr<HydDeviceInfoChunk const> master;
    if (m_format.channels > 1)
        master = std::make_shared<HydDeviceInfoChunkV1>(&device);
    std::vector<std::shared_ptr<HydDeviceInfoChunk const>> devices;
    std::vector<std::shared_ptr<HydStreamStatusChunk const>> statuses;
    std::vector<std::shared_ptr<HydAmplScalingChunk const>> scalings;
    for (unsigned c = 0; c < m_format.channels; ++c) {
        device.serial = static_cast<uint16_t>(master ? who.serial + 1 + c : who.serial);
        device.hostDevNo = master ? who.serial : uint16_t{0};
        devices.push_back(std::make_shared<HydDeviceInfoChunkV1>(&device));
        statuses.push_back(std::make_shared<HydStreamStatusChunkV0>(&status));
        scalings.push_back(std::make_shared<HydAmplScalingChunkV0>(&scaling));
    }
    stWAVE_SETUP_CHUNK_V0 setup;
    setup.sampleRate = m_rate;
    setup.gain = static_cast<int16_t>(state().jobSettings().wavGain());
    setup.format = static_cast<uint8_t>(m_format.bytesPerSample | (m_format.bigEndian ? 0x80 : 0));

    sendPayload(std::make_shared<HydStreamEventHeaderPayload>(
        std::make_shared<HydEventKeyChunkV1>(&key), devices, statuses,
        HydStreamSetupContainer(
            std::shared_ptr<HydWavSetupChunk const>(std::make_shared<HydWavSetupChunk>(&setup))),
        scalings, static_cast<unsigned char>(m_format.channels), master));
}

int64_t WaveStream::nextBlockSize() const
{
    const int64_t bytes = m_format.bytesPerSample * m_format.channels;
    const int64_t wanted = std::max<int64_t>(1, m_rate / state().settings().blocksPerSecond);
    const int64_t left = m_event.samples - m_position;
    return std::min({wanted, left > 0 ? left : wanted, kMaxSampleBytes / bytes,
                     int64_t{std::numeric_limits<uint16_t>::max()}});
}

void WaveStream::applyBlockFaults()
{
    if (const auto code = link().strike(Fault::Notify)) {
        Q_EMIT state().notification(static_cast<quint16>(*code), QByteArrayLiteral("Simulated notification"));
        if (!isRunning())
            return;
    }
    if (const auto seconds = link().strike(Fault::NewEvent)) {
        const int64_t time = int64_t{m_event.time} + (*seconds > 0 ? *seconds : 1);
        beginEvent(time, m_event.sequence + m_position);
        sendHeader();
    }
}

void WaveStream::sendBlock(bool drop)
{
    // A header goes out with the first block of its second, not with the last one of the second before.
    if (m_position >= m_event.samples)
        nextEvent();
    if (!drop) {
        applyBlockFaults();
        if (!isRunning())
            return;
    }
    const int64_t count = nextBlockSize();
    RecorderCounters& counters = state().counters;
    if (drop) {
        ++counters.framesDropped;
        counters.samplesDropped += static_cast<uint64_t>(count);
    } else {
        const auto oversize = link().strike(Fault::Oversize);
        const bool sent = sendFrame(blockFrame(m_position, count, oversize)) && !oversize;
        (sent ? counters.samplesSent : counters.samplesWithheld) += static_cast<uint64_t>(count);
    }
    m_position += count;
    m_paceSamples += count;
    state().noteSampleSent(m_event.sequence + m_position - 1);
}

QByteArray WaveStream::blockFrame(int64_t position, int64_t count, std::optional<int64_t> oversize) const
{
    const qsizetype sampleBytes = static_cast<qsizetype>(count * m_format.bytesPerSample * m_format.channels);
    QByteArray frame(kBeforeSamples + sampleBytes + kAfterSamples, Qt::Uninitialized);
    auto* const begin = reinterpret_cast<uchar*>(frame.data());
    uchar* at = begin;
    const auto chunkBytes = static_cast<uint32_t>(2 * kChunkHead + kKeyBody + kDataHead + sampleBytes);
    *at++ = '0';
    *at++ = '*';
    *at++ = HydStreamMessage::KindData;
    *at++ = HydStreamMessage::kVersion;
    at = putWord(at, oversize && *oversize == 1 ? 0xFFFFFFFFU : chunkBytes);

    at = putWord(at, uint16_t{ChunkEventKey});
    at = putWord(at, static_cast<uint32_t>(kKeyBody));
    at = putWord(at, m_event.time);
    at = putWord(at, m_event.sequence);
    *at++ = 0;
    *at++ = 0;
    *at++ = position + count == m_event.samples ? 1 : 0;
    *at++ = 0;

    at = putWord(at, uint16_t{ChunkData});
    at = putWord(at, static_cast<uint32_t>(kDataHead + sampleBytes));
    at = putWord(at, static_cast<uint32_t>(position));
    *at++ = static_cast<uchar>(m_format.channels);
    *at++ = static_cast<uchar>(m_format.bytesPerSample | (m_format.bigEndian ? 0 : 0x80));
    at = putWord(at, static_cast<uint16_t>(oversize && *oversize == 0 ? 0xFFFF : count));
    m_source->fill(static_cast<uint64_t>(m_event.sequence + position), static_cast<size_t>(count), m_format,
                   at);
    at += sampleBytes;
    putWord(at, HydStreamMessage::checksum({begin, static_cast<size_t>(at - begin)}));
    return frame;
}
