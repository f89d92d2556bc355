#include "NvxQtCommon/replay/NvxWAVDataThread.h"

#include "NvxQtCommon/contract/base/CopyBytes.h"
#include "NvxQtCommon/contract/stream/FftParams.h"

#include <QPointer>

#include <algorithm>

namespace {

constexpr unsigned kMaxBytesPerSample = 4;
constexpr unsigned kLittleEndianBit = 128;

template <size_t Width>
void pickEach(const unsigned char* from, size_t stride, unsigned char* to, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        for (size_t k = 0; k < Width; ++k)
            to[i * Width + k] = from[i * stride + k];
    }
}

/// Copies the samples of one channel, the first of which is at `from`, out of frames of `stride` bytes.
void pickChannel(const unsigned char* from, size_t stride, unsigned char* to, size_t count, unsigned width)
{
    switch (width) {
    case 1:
        return pickEach<1>(from, stride, to, count);
    case 2:
        return pickEach<2>(from, stride, to, count);
    case 3:
        return pickEach<3>(from, stride, to, count);
    default:
        return pickEach<4>(from, stride, to, count);
    }
}

} // namespace

NvxWAVDataThread::NvxWAVDataThread(const QString& name, QObject* parent) : NvxDataThread(name, parent)
{
    connect(m_timer, &QTimer::timeout, this, &NvxWAVDataThread::readRecord);
}

NvxWAVDataThread::~NvxWAVDataThread() = default;

void NvxWAVDataThread::setFileHeader(std::shared_ptr<NvxWavHeader> header, unsigned /*headerLength*/,
                                     int dataStart, char ticksPerSecond)
{
    m_channelIds.clear();
    m_header = std::move(header);
    m_fmt = m_header ? m_header->fmt() : nullptr;
    m_info = m_header ? m_header->info() : nullptr;
    m_dataStart = dataStart;
    m_ticksPerSecond = static_cast<qint8>(ticksPerSecond);
    m_tickPhase = 0;
    if (!m_fmt || !m_info) {
        m_fmt.reset();
        return;
    }
    const unsigned channels = m_fmt->numChannels();
    for (unsigned channel = 1; channel <= channels; ++channel) {
        HydDeviceId id(DevTypeWavFile, m_info->serialNo(static_cast<unsigned char>(channel)));
        if (channels > 1)
            id.setHostDevNo(m_info->serialNo(0));
        m_channelIds.append(id);
    }
    m_bytesPerSample = m_fmt->bitsPerSamp() / 8U;
    m_chunkBytes = qint64{std::min(m_fmt->sampleRate(), FFT_Params_WAV.fftLength())} * m_bytesPerSample;
    m_sampleFormat =
        static_cast<uint8_t>(m_bytesPerSample | (m_header->isBigEndian() ? 0 : kLittleEndianBit));
    m_bytesPerSecond = static_cast<double>(m_fmt->sampleRate()) * m_bytesPerSample;
}

bool NvxWAVDataThread::seekToSec(unsigned sec)
{
    if (!hasBegun() || !m_file.isOpen() || !m_fmt)
        return false;
    return m_file.seek(m_dataStart + qint64{sec} * m_fmt->bytesPerSec());
}

void NvxWAVDataThread::run()
{
    m_file.setFileName(fileName());
    if (m_header && openForReading(m_file)) {
        m_file.seek(m_dataStart);
        // Cut to 32 bits; this is intended.
        const auto end = static_cast<quint32>(m_dataStart) + m_header->dataSize();
        m_dataEnd = std::min<qint64>(m_file.size(), end);
    } else {
        exit(0);
    }
    beginTicks();
    exec();
}

void NvxWAVDataThread::exitThread()
{
    // Until then the file is run()'s.
    if (hasBegun())
        m_file.close();
    NvxDataThread::exitThread();
}

qint64 NvxWAVDataThread::tickBytes() const
{
    const double channels = m_fmt->numChannels();
    switch (m_ticksPerSecond) {
    case 4:
        return static_cast<qint64>(channels * (m_bytesPerSecond * 0.25));
    case 2:
        return static_cast<qint64>(channels * (m_bytesPerSecond * 0.5));
    default:
        return static_cast<qint64>(channels * m_bytesPerSecond);
    }
}

qint64 NvxWAVDataThread::end() const
{
    return std::min(m_dataEnd, m_file.size());
}

void NvxWAVDataThread::readRecord()
{
    runTick([this] { readTick(); });
}

void NvxWAVDataThread::readTick()
{
    if (!m_fmt || !m_file.isOpen() || m_file.pos() + tickBytes() > end()) {
        // What is left and fills no tick isn't played; this is intended.
        exitThread();
        return;
    }
    const qint64 fullFrame = m_fmt->numChannels() * m_chunkBytes;
    if (m_bytesPerSample > kMaxBytesPerSample || fullFrame == 0)
        return;
    qint64 total = tickBytes();
    qint64 frames = (total + fullFrame - 1) / fullFrame;
    // One tick more than there are in a second makes a round; this is intended.
    if (m_ticksPerSecond > 1 && m_tickPhase < m_ticksPerSecond) {
        ++m_tickPhase;
    } else if (m_ticksPerSecond > 1) {
        m_tickPhase = 0;
        const qint64 lost = static_cast<qint64>(m_fmt->numChannels() * m_bytesPerSecond) % m_ticksPerSecond;
        if (lost != 0) {
            ++frames;
            total += lost;
        }
    }
    // A tick of less than a byte plays what its round puts back, and isn't counted before; this is intended.
    if (frames == 0)
        return;

    const qint64 step = qint64{m_fmt->numChannels()} * m_bytesPerSample;
    std::shared_ptr<unsigned char[]> frame;
    qint64 remaining = total;
    for (qint64 covered = fullFrame; frames > 0; --frames, covered += fullFrame, remaining -= fullFrame) {
        qint64 size = total < covered ? remaining : fullFrame;
        const qint64 position = m_file.pos();
        const qint64 last = end();
        const bool isLast = position + size >= last;
        if (position + size > last)
            size = (last - position) / step * step;
        if (size == 0 || position + step >= last) {
            exitThread();
            return;
        }
        // The frame that was added for the bytes put back may have nothing left to hold. Like one that can't
        // be read it ends a tick that then isn't counted; this is intended.
        if (size < 0)
            return;
        // A block of one channel is the frame itself, so each is new; the channels of others are copied out.
        if (!frame || m_fmt->numChannels() == 1)
            frame = std::make_shared_for_overwrite<unsigned char[]>(
                static_cast<size_t>(std::min(fullFrame, std::max(size, total))));
        if (m_file.read(reinterpret_cast<char*>(frame.get()), size) != size)
            return;
        // A slot may have ended the thread, which closes the file.
        if (!handOut(frame, size, isLast) || !m_file.isOpen())
            return;
    }
    ++m_tick;
}

bool NvxWAVDataThread::handOut(const std::shared_ptr<unsigned char[]>& frame, qint64 size, bool isLast)
{
    const unsigned channels = m_fmt->numChannels();
    const auto count = static_cast<unsigned>(size / channels / m_bytesPerSample);
    const auto sampleNumber = static_cast<unsigned>(m_tick * count);
    const unsigned parts = (count + kMaxBlockSamples - 1) / kMaxBlockSamples;
    const unsigned partSize = parts != 0 ? (count + parts - 1) / parts : 1;
    const size_t bytes = size_t{count} * m_bytesPerSample;
    const QPointer<NvxWAVDataThread> self(this);
    for (unsigned channel = 0; channel < channels; ++channel) {
        std::shared_ptr<unsigned char[]> block = frame;
        if (channels > 1) {
            block = std::make_shared_for_overwrite<unsigned char[]>(bytes);
            pickChannel(frame.get() + size_t{channel} * m_bytesPerSample, size_t{channels} * m_bytesPerSample,
                        block.get(), count, m_bytesPerSample);
        }
        // A frame of less than a sample for each channel makes an empty block.
        for (unsigned first = 0; first < std::max(count, 1U); first += partSize) {
            const unsigned partCount = std::min(partSize, count - first);
            const std::shared_ptr<unsigned char[]> part(block,
                                                        block.get() + size_t{first} * m_bytesPerSample);
            const bool isEnd = isLast && first + partCount == count;
            const auto payload = payloadOf(part, partCount, sampleNumber, isEnd);
            m_sampleCount += partCount;
            formSignalReady(payload, static_cast<int>(channel));
            if (!self || isRetired())
                return false;
        }
    }
    return true;
}

std::shared_ptr<HydStreamDataPayload> NvxWAVDataThread::payloadOf(std::shared_ptr<unsigned char[]> samples,
                                                                  unsigned count, unsigned sampleNumber,
                                                                  bool isLast) const
{
    stKEY_CHUNK_V1 key;
    const auto ticksPerSecond = static_cast<quint64>(std::max<qint8>(m_ticksPerSecond, 1));
    key.time = static_cast<uint32_t>(m_info->timestamp() + m_tick / ticksPerSecond);
    const uint64_t sequence = m_info->startSample() + m_sampleCount;
    key.seqHigh = static_cast<uint32_t>(sequence >> 32);
    key.seqLow = static_cast<uint32_t>(sequence);
    auto keyChunk = std::make_shared<HydEventKeyChunkV1>(&key);
    keyChunk->setLastEvent(isLast);
    auto data = std::make_shared<HydStreamDataChunkV0>(sampleNumber, uint8_t{1}, m_sampleFormat,
                                                       static_cast<unsigned short>(count), std::move(samples),
                                                       size_t{count} * m_bytesPerSample);
    auto payload = std::make_shared<HydStreamDataPayload>(std::move(keyChunk), std::move(data));
    payload->streamType = StreamWaveScan;
    return payload;
}

void NvxWAVDataThread::formSignalReady(std::shared_ptr<HydStreamDataPayload> payload, int channel)
{
    if (m_channelIds.isEmpty())
        return;
    const bool isKnown = channel >= 0 && channel < m_channelIds.size();
    Q_EMIT streamDataReady(std::move(payload), m_channelIds[isKnown ? channel : 0]);
}
