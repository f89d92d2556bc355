#pragma once

#include "NvxQtCommon/contract/message/HydCommandPayload.h"

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

/// Names one chunk of a data collect message. A data chunk has the number of its scan mask bit,
/// the time chunk that belongs to it that number times 256.
enum DataCollMask : uint16_t {
    DataCollSpec = 16,
    DataCollWav = 32,
    DataCollSpecTime = 4096,
    DataCollWavTime = 8192,
};

/// Root of the chunks of a data collect message.
class NVXQTCOMMON_EXPORT DataCollChunk : public ISerializable
{
};

/// Where the wave data of a message stand in time.
class NVXQTCOMMON_EXPORT DataCollWavTimeChunk : public DataCollChunk
{
public:
    DataCollWavTimeChunk() = default;
    DataCollWavTimeChunk(uint32_t time, uint32_t sampsIntoSec) : m_time(time), m_sampsIntoSec(sampsIntoSec) {}

    /// Seconds since the epoch.
    uint32_t time() const { return m_time; }
    /// Samples of that second, per channel, ahead of the first sample of the message.
    uint32_t sampsIntoSec() const { return m_sampsIntoSec; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    uint32_t m_time = 0;
    uint32_t m_sampsIntoSec = 0;
};

/// Where the spectrum of a message stands in time.
class NVXQTCOMMON_EXPORT DataCollSpecTimeChunk : public DataCollChunk
{
public:
    DataCollSpecTimeChunk() = default;
    DataCollSpecTimeChunk(uint32_t time, uint32_t sequence) : m_time(time), m_sequence(sequence) {}

    /// Seconds since the epoch.
    uint32_t time() const { return m_time; }
    /// Running number of the spectrum.
    uint32_t sequence() const { return m_sequence; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    uint32_t m_time = 0;
    uint32_t m_sequence = 0;
};

/// Wave samples of a message with what is needed to read them.
class NVXQTCOMMON_EXPORT DataCollWavChunk : public DataCollChunk
{
public:
    uint32_t sampleRate = 0; ///< Hz
    int16_t gain = 0;        ///< dB
    uint8_t format = 0;      ///< low four bits bytes per sample, 1 to 15; bit 7 set for little-endian
    uint8_t channels = 1;
    uint16_t count = 0;           ///< samples of each channel
    std::vector<uint8_t> samples; ///< count x channels x bytes per sample

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;
};

/// A spectrum of a message with what is needed to read it.
class NVXQTCOMMON_EXPORT DataCollSpecChunk : public DataCollChunk
{
public:
    uint32_t sampleRate = 0; ///< Hz
    uint16_t points = 0;
    int16_t refLevel = 0; ///< dB
    uint16_t procType = 0;
    uint16_t pointsBtw = 0;
    uint16_t accum = 0;
    uint16_t weight = 0;
    std::vector<uint8_t> bins; ///< one byte a bin, at most 65535

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;
};

/// Letter C: asks for collected data (the mask alone), or carries it (mask and chunks).
class NVXQTCOMMON_EXPORT HydDataCollectCmd : public HydControlMsgPayload,
                                             public DeserializationFactory<HydDataCollectCmd>
{
public:
    /// Bit of a reply's mask: the device holds more data.
    static constexpr uint8_t kMoreData = 0x80;

    explicit HydDataCollectCmd(uint8_t mask = 0) : m_mask(mask) {}

    uint8_t msgType() const override { return 'C'; }
    uint8_t scanMask() const { return m_mask; }
    /// The chunk of one mask value, or null.
    std::shared_ptr<const DataCollChunk> getChunk(DataCollMask mask) const;
    void setChunk(DataCollMask mask, std::shared_ptr<const DataCollChunk> chunk);

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    uint8_t m_mask;
    std::map<DataCollMask, std::shared_ptr<const DataCollChunk>> m_chunks;
};
