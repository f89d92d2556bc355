#pragma once

#include "NvxQtCommon/contract/base/ByteStream.h"
#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/identity/HydEnums.h"
#include "NvxQtCommon/contract/stream/StreamRecords.h"

#include <cstdint>
#include <memory>
#include <variant>

// Chunks of stream messages. Each interface class has one class of its record's version behind it, which is
// built from a pointer to the raw record and keeps a copy of it; the record stays the caller's. Chunks are
// immutable once they are in a payload and may be read from any thread. serialize() writes the chunk's body
// as docs/wire-protocol.md gives it, fromWire() reads it; a body longer than known is accepted, so that later
// versions may append.

/// Root of all chunks.
class NVXQTCOMMON_EXPORT HydStreamChunk
{
public:
    virtual ~HydStreamChunk();
    /// Chunk type on the wire.
    virtual uint16_t chunkType() const = 0;
    virtual void serialize(ByteStream& out) const = 0;

protected:
    HydStreamChunk() = default;
    HydStreamChunk(const HydStreamChunk&) = default;
    HydStreamChunk& operator=(const HydStreamChunk&) = default;
};

/// Chunk type numbers on the wire.
enum HydStreamChunkType : uint16_t {
    ChunkEventKey = 1,
    ChunkDeviceInfo = 2,
    ChunkStatus = 3,
    ChunkWavSetup = 4,
    ChunkFftSetup = 5,
    ChunkAmplScaling = 6,
    ChunkHeadStatus = 7,
    ChunkArrayMaster = 8,
    ChunkData = 9,
    ChunkNotify = 10,
    ChunkEventInfo = 11,
    ChunkBattery = 12,
    ChunkAccMag = 13,
    ChunkTimeSync = 14,
    ChunkTrigger = 15,
};

/// Identity of an event and its place in the running sample count.
/// The order of the virtual functions is fixed, eventId() the fifth and sequence() the sixth with the
/// destructor as the first.
class NVXQTCOMMON_EXPORT HydEventKeyChunk : public HydStreamChunk
{
public:
    uint16_t chunkType() const override { return ChunkEventKey; }
    /// Event time in seconds since the epoch.
    virtual uint32_t time() const = 0;
    /// Identity of the event: its time as an unsigned number.
    virtual uint64_t eventId() const = 0;
    /// Running sample number of the event's first sample, per channel.
    virtual int64_t sequence() const = 0;
    virtual uint8_t trigNum() const = 0;
    virtual uint8_t trigState() const = 0;
    /// True on the block that closes a second of samples or a file.
    virtual bool isLastEvent() const = 0;
    virtual void setLastEvent(bool last) = 0;
};

class NVXQTCOMMON_EXPORT HydEventKeyChunkV1 : public HydEventKeyChunk
{
public:
    explicit HydEventKeyChunkV1(const stKEY_CHUNK_V1* record) : m_record(*record) {}
    static std::shared_ptr<HydEventKeyChunkV1> fromWire(ByteReader& in);

    void serialize(ByteStream& out) const override;
    uint32_t time() const override { return m_record.time; }
    uint64_t eventId() const override { return m_record.time; }
    int64_t sequence() const override
    {
        return static_cast<int64_t>((uint64_t{m_record.seqHigh} << 32) | m_record.seqLow);
    }
    uint8_t trigNum() const override { return m_record.trigNum; }
    uint8_t trigState() const override { return m_record.trigState; }
    bool isLastEvent() const override { return m_record.lastEvent != 0; }
    void setLastEvent(bool last) override { m_record.lastEvent = last ? 1 : 0; }

private:
    stKEY_CHUNK_V1 m_record;
};

/// Who recorded.
class NVXQTCOMMON_EXPORT HydDeviceInfoChunk : public HydStreamChunk
{
public:
    uint16_t chunkType() const override { return ChunkDeviceInfo; }
    virtual HydDeviceType devType() const = 0;
    virtual uint16_t serialNo() const = 0;
    virtual uint16_t hostDevNo() const = 0;
    /// Tenths of a dB re 1 V/µPa.
    virtual int16_t sensitivity() const = 0;
};

class NVXQTCOMMON_EXPORT HydDeviceInfoChunkV1 : public HydDeviceInfoChunk
{
public:
    explicit HydDeviceInfoChunkV1(const stDEVICE_CHUNK_V1* record) : m_record(*record) {}
    static std::shared_ptr<HydDeviceInfoChunkV1> fromWire(ByteReader& in);

    void serialize(ByteStream& out) const override;
    HydDeviceType devType() const override { return static_cast<HydDeviceType>(m_record.devType); }
    uint16_t serialNo() const override { return m_record.serial; }
    uint16_t hostDevNo() const override { return m_record.hostDevNo; }
    int16_t sensitivity() const override { return m_record.sensitivity; }

private:
    stDEVICE_CHUNK_V1 m_record;
};

/// Conditions inside the recorder.
class NVXQTCOMMON_EXPORT HydStreamStatusChunk : public HydStreamChunk
{
public:
    uint16_t chunkType() const override { return ChunkStatus; }
    /// Tenths of a degree Celsius.
    virtual int16_t temperature() const = 0;
    /// Tenths of a percent.
    virtual int16_t humidity() const = 0;
    /// Third value of the status.
    virtual uint8_t statusExtra() const = 0;
    virtual uint16_t flags() const = 0;
    /// Counts the recorder's own file changes; 0 means none.
    virtual uint8_t rollover() const = 0;
};

class NVXQTCOMMON_EXPORT HydStreamStatusChunkV0 : public HydStreamStatusChunk
{
public:
    explicit HydStreamStatusChunkV0(const stSTATUS_CHUNK_V0* record) : m_record(*record) {}
    static std::shared_ptr<HydStreamStatusChunkV0> fromWire(ByteReader& in);

    void serialize(ByteStream& out) const override;
    int16_t temperature() const override { return m_record.temperature; }
    int16_t humidity() const override { return m_record.humidity; }
    uint8_t statusExtra() const override { return m_record.extra; }
    uint16_t flags() const override { return m_record.flags; }
    uint8_t rollover() const override { return m_record.rollover; }

private:
    stSTATUS_CHUNK_V0 m_record;
};

/// Format of the samples of a wave stream. Bit 7 of its format byte set means big-endian: the other way round
/// than on a data chunk, and meant so.
class NVXQTCOMMON_EXPORT HydWavSetupChunk : public HydStreamChunk
{
public:
    explicit HydWavSetupChunk(const stWAVE_SETUP_CHUNK_V0* record) : m_record(*record) {}
    static std::shared_ptr<HydWavSetupChunk> fromWire(ByteReader& in);

    uint16_t chunkType() const override { return ChunkWavSetup; }
    void serialize(ByteStream& out) const override;
    /// Hz.
    uint32_t sampleRate() const { return m_record.sampleRate; }
    bool isBigEndian() const { return (m_record.format & 0x80) != 0; }
    /// dB.
    int16_t gain() const { return m_record.gain; }
    /// Bits per sample: 8 times the low four bits of the format byte.
    uint8_t bitDepth() const { return static_cast<uint8_t>((m_record.format & 0x0F) * 8); }

private:
    stWAVE_SETUP_CHUNK_V0 m_record;
};

/// Parameters of a spectrum stream.
class NVXQTCOMMON_EXPORT HydFftSetupChunk : public HydStreamChunk
{
public:
    uint16_t chunkType() const override { return ChunkFftSetup; }
    /// Hz.
    virtual uint32_t sampleRate() const = 0;
    virtual uint16_t points() const = 0;
    /// Reference level in dB, signed.
    virtual int16_t refLevel() const = 0;
    virtual uint16_t procType() const = 0;
    /// Points between two spectra.
    virtual uint16_t pointsBtw() const = 0;
    virtual uint16_t accum() const = 0;
    virtual uint16_t weight() const = 0;
};

class NVXQTCOMMON_EXPORT HydFftSetupChunkV1 : public HydFftSetupChunk
{
public:
    explicit HydFftSetupChunkV1(const stFFT_SETUP_CHUNK_V1* record) : m_record(*record) {}
    static std::shared_ptr<HydFftSetupChunkV1> fromWire(ByteReader& in);

    void serialize(ByteStream& out) const override;
    uint32_t sampleRate() const override { return m_record.sampleRate; }
    uint16_t points() const override { return m_record.points; }
    int16_t refLevel() const override { return m_record.refLevel; }
    uint16_t procType() const override { return m_record.procType; }
    uint16_t pointsBtw() const override { return m_record.pointsBtw; }
    uint16_t accum() const override { return m_record.accum; }
    uint16_t weight() const override { return m_record.weight; }

private:
    stFFT_SETUP_CHUNK_V1 m_record;
};

/// How sample values become volts.
class NVXQTCOMMON_EXPORT HydAmplScalingChunk : public HydStreamChunk
{
public:
    uint16_t chunkType() const override { return ChunkAmplScaling; }
    virtual uint8_t bitsPerSample() const = 0;
    virtual int32_t maxValue() const = 0;
    virtual int32_t minValue() const = 0;
    /// Voltage at the largest value in microvolts.
    virtual int32_t maxMicrovolts() const = 0;
    /// Voltage at the smallest value in microvolts.
    virtual int32_t minMicrovolts() const = 0;
};

class NVXQTCOMMON_EXPORT HydAmplScalingChunkV0 : public HydAmplScalingChunk
{
public:
    explicit HydAmplScalingChunkV0(const stAMPLITUDE_CHUNK_V0* record) : m_record(*record) {}
    static std::shared_ptr<HydAmplScalingChunkV0> fromWire(ByteReader& in);

    void serialize(ByteStream& out) const override;
    uint8_t bitsPerSample() const override { return m_record.bitsPerSample; }
    int32_t maxValue() const override { return m_record.maxValue; }
    int32_t minValue() const override { return m_record.minValue; }
    int32_t maxMicrovolts() const override { return m_record.maxMicrovolts; }
    int32_t minMicrovolts() const override { return m_record.minMicrovolts; }

private:
    stAMPLITUDE_CHUNK_V0 m_record;
};

/// Heading of the recorder.
class NVXQTCOMMON_EXPORT HydStreamHeadStatusChunk : public HydStreamChunk
{
public:
    uint16_t chunkType() const override { return ChunkHeadStatus; }
    virtual const stHEADING_CHUNK_V0& record() const = 0;
    /// Takes the content of `other` over in place.
    virtual void assign(const HydStreamHeadStatusChunk& other) = 0;
    uint32_t time() const { return record().time; }
    /// Tenths of a degree, all three.
    uint16_t heading() const { return record().heading; }
    int16_t pitch() const { return record().pitch; }
    int16_t roll() const { return record().roll; }
};

class NVXQTCOMMON_EXPORT HydStreamHeadStatusChunkV0 : public HydStreamHeadStatusChunk
{
public:
    explicit HydStreamHeadStatusChunkV0(const stHEADING_CHUNK_V0* record) : m_record(*record) {}
    static std::shared_ptr<HydStreamHeadStatusChunkV0> fromWire(ByteReader& in);

    void serialize(ByteStream& out) const override;
    const stHEADING_CHUNK_V0& record() const override { return m_record; }
    void assign(const HydStreamHeadStatusChunk& other) override { m_record = other.record(); }

private:
    stHEADING_CHUNK_V0 m_record;
};

/// One kind of sensor reading: a raw record that consumers read field by field.
template <class Record, uint16_t Type> class NVXQTCOMMON_EXPORT HydSensorChunk : public HydStreamChunk
{
public:
    explicit HydSensorChunk(const Record* record) : m_record(*record) {}
    static std::shared_ptr<HydSensorChunk> fromWire(ByteReader& in);

    uint16_t chunkType() const override { return Type; }
    void serialize(ByteStream& out) const override;
    const Record& record() const { return m_record; }

private:
    Record m_record;
};

using HydBatteryChunk = HydSensorChunk<stBATTERY_CHUNK_V0, ChunkBattery>;
using HydAccMagChunk = HydSensorChunk<stACC_MAG_CHUNK_V0, ChunkAccMag>;
using HydTimeSyncChunk = HydSensorChunk<stTIME_SYNC_CHUNK_V0, ChunkTimeSync>;
using HydTriggerChunk = HydSensorChunk<stTRIGGER_CHUNK_V0, ChunkTrigger>;

/// Holds either a wave setup or a spectrum setup.
class NVXQTCOMMON_EXPORT HydStreamSetupContainer
{
public:
    HydStreamSetupContainer() = default;
    explicit HydStreamSetupContainer(std::shared_ptr<HydWavSetupChunk const> setup)
        : m_setup(std::move(setup))
    {
    }
    explicit HydStreamSetupContainer(std::shared_ptr<HydFftSetupChunk const> setup)
        : m_setup(std::move(setup))
    {
    }

    /// Null when this holds no wave setup.
    std::shared_ptr<HydWavSetupChunk const> wavSetup() const;
    /// Null when this holds no spectrum setup.
    std::shared_ptr<HydFftSetupChunk const> fftSetup() const;

private:
    std::variant<std::monostate, std::shared_ptr<HydWavSetupChunk const>,
                 std::shared_ptr<HydFftSetupChunk const>>
        m_setup;
};
