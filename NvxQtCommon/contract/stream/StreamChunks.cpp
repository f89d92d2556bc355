#include "NvxQtCommon/contract/stream/StreamChunks.h"

namespace {

void putI16(ByteStream& out, int16_t value)
{
    out.putU16(static_cast<uint16_t>(value));
}

void putI32(ByteStream& out, int32_t value)
{
    out.putU32(static_cast<uint32_t>(value));
}

// One pair of functions for each raw record: its body on the wire.

void writeBody(ByteStream& out, const stBATTERY_CHUNK_V0& record)
{
    out.putU32(record.time);
    out.putU16(record.millivolts);
    putI16(out, record.milliamperes);
    out.putU8(record.percent);
    out.putU8(record.state);
    putI16(out, record.temperature);
}

void readBody(ByteReader& in, stBATTERY_CHUNK_V0& record)
{
    record.time = in.u32();
    record.millivolts = in.u16();
    record.milliamperes = in.i16();
    record.percent = in.u8();
    record.state = in.u8();
    record.temperature = in.i16();
}

void writeBody(ByteStream& out, const stACC_MAG_CHUNK_V0& record)
{
    for (int16_t value : record.acceleration)
        putI16(out, value);
    for (int16_t value : record.magnetic)
        putI16(out, value);
}

void readBody(ByteReader& in, stACC_MAG_CHUNK_V0& record)
{
    for (int16_t& value : record.acceleration)
        value = in.i16();
    for (int16_t& value : record.magnetic)
        value = in.i16();
}

void writeBody(ByteStream& out, const stTIME_SYNC_CHUNK_V0& record)
{
    out.putU32(record.time);
    putI32(out, record.offsetNs);
    out.putU16(record.master);
    out.putU8(record.state);
    out.putU8(0);
}

void readBody(ByteReader& in, stTIME_SYNC_CHUNK_V0& record)
{
    record.time = in.u32();
    record.offsetNs = in.i32();
    record.master = in.u16();
    record.state = in.u8();
    in.u8();
}

void writeBody(ByteStream& out, const stTRIGGER_CHUNK_V0& record)
{
    out.putU32(record.time);
    out.putU8(record.trigNum);
    out.putU8(record.trigState);
    out.putU16(0);
}

void readBody(ByteReader& in, stTRIGGER_CHUNK_V0& record)
{
    record.time = in.u32();
    record.trigNum = in.u8();
    record.trigState = in.u8();
    in.u16();
}

template <class Chunk, class Record>
std::shared_ptr<Chunk> chunkOf(const ByteReader& in, const Record& record)
{
    return in.ok() ? std::make_shared<Chunk>(&record) : nullptr;
}

} // namespace

HydStreamChunk::~HydStreamChunk() = default;

std::shared_ptr<HydEventKeyChunkV1> HydEventKeyChunkV1::fromWire(ByteReader& in)
{
    stKEY_CHUNK_V1 record;
    record.time = in.u32();
    record.seqHigh = in.u32();
    record.seqLow = in.u32();
    record.trigNum = in.u8();
    record.trigState = in.u8();
    record.lastEvent = in.u8();
    in.u8();
    return chunkOf<HydEventKeyChunkV1>(in, record);
}

void HydEventKeyChunkV1::serialize(ByteStream& out) const
{
    out.putU32(m_record.time);
    out.putU32(m_record.seqHigh);
    out.putU32(m_record.seqLow);
    out.putU8(m_record.trigNum);
    out.putU8(m_record.trigState);
    out.putU8(m_record.lastEvent);
    out.putU8(0);
}

std::shared_ptr<HydDeviceInfoChunkV1> HydDeviceInfoChunkV1::fromWire(ByteReader& in)
{
    stDEVICE_CHUNK_V1 record;
    record.devType = in.u8();
    in.u8();
    record.hostDevNo = in.u16();
    record.serial = in.u16();
    record.sensitivity = in.i16();
    return chunkOf<HydDeviceInfoChunkV1>(in, record);
}

void HydDeviceInfoChunkV1::serialize(ByteStream& out) const
{
    out.putU8(m_record.devType);
    out.putU8(0);
    out.putU16(m_record.hostDevNo);
    out.putU16(m_record.serial);
    putI16(out, m_record.sensitivity);
}

std::shared_ptr<HydStreamStatusChunkV0> HydStreamStatusChunkV0::fromWire(ByteReader& in)
{
    stSTATUS_CHUNK_V0 record;
    record.temperature = in.i16();
    record.humidity = in.i16();
    record.extra = in.u8();
    record.rollover = in.u8();
    record.flags = in.u16();
    return chunkOf<HydStreamStatusChunkV0>(in, record);
}

void HydStreamStatusChunkV0::serialize(ByteStream& out) const
{
    putI16(out, m_record.temperature);
    putI16(out, m_record.humidity);
    out.putU8(m_record.extra);
    out.putU8(m_record.rollover);
    out.putU16(m_record.flags);
}

std::shared_ptr<HydWavSetupChunk> HydWavSetupChunk::fromWire(ByteReader& in)
{
    stWAVE_SETUP_CHUNK_V0 record;
    record.sampleRate = in.u32();
    record.gain = in.i16();
    record.format = in.u8();
    record.one = in.u8();
    return chunkOf<HydWavSetupChunk>(in, record);
}

void HydWavSetupChunk::serialize(ByteStream& out) const
{
    out.putU32(m_record.sampleRate);
    putI16(out, m_record.gain);
    out.putU8(m_record.format);
    out.putU8(m_record.one);
}

std::shared_ptr<HydFftSetupChunkV1> HydFftSetupChunkV1::fromWire(ByteReader& in)
{
    stFFT_SETUP_CHUNK_V1 record;
    record.sampleRate = in.u32();
    record.points = in.u16();
    record.refLevel = in.i16();
    record.procType = in.u16();
    record.pointsBtw = in.u16();
    record.accum = in.u16();
    record.weight = in.u16();
    record.one = in.u8();
    in.u8();
    return chunkOf<HydFftSetupChunkV1>(in, record);
}

void HydFftSetupChunkV1::serialize(ByteStream& out) const
{
    out.putU32(m_record.sampleRate);
    out.putU16(m_record.points);
    putI16(out, m_record.refLevel);
    out.putU16(m_record.procType);
    out.putU16(m_record.pointsBtw);
    out.putU16(m_record.accum);
    out.putU16(m_record.weight);
    out.putU8(m_record.one);
    out.putU8(0);
}

std::shared_ptr<HydAmplScalingChunkV0> HydAmplScalingChunkV0::fromWire(ByteReader& in)
{
    stAMPLITUDE_CHUNK_V0 record;
    record.isArray = in.u8();
    record.bitsPerSample = in.u8();
    in.u16();
    record.maxValue = in.i32();
    record.minValue = in.i32();
    record.maxMicrovolts = in.i32();
    record.minMicrovolts = in.i32();
    return chunkOf<HydAmplScalingChunkV0>(in, record);
}

void HydAmplScalingChunkV0::serialize(ByteStream& out) const
{
    out.putU8(m_record.isArray);
    out.putU8(m_record.bitsPerSample);
    out.putU16(0);
    putI32(out, m_record.maxValue);
    putI32(out, m_record.minValue);
    putI32(out, m_record.maxMicrovolts);
    putI32(out, m_record.minMicrovolts);
}

std::shared_ptr<HydStreamHeadStatusChunkV0> HydStreamHeadStatusChunkV0::fromWire(ByteReader& in)
{
    stHEADING_CHUNK_V0 record;
    record.time = in.u32();
    record.heading = in.u16();
    record.pitch = in.i16();
    record.roll = in.i16();
    in.u16();
    return chunkOf<HydStreamHeadStatusChunkV0>(in, record);
}

void HydStreamHeadStatusChunkV0::serialize(ByteStream& out) const
{
    out.putU32(m_record.time);
    out.putU16(m_record.heading);
    putI16(out, m_record.pitch);
    putI16(out, m_record.roll);
    out.putU16(0);
}

template <class Record, uint16_t Type>
std::shared_ptr<HydSensorChunk<Record, Type>> HydSensorChunk<Record, Type>::fromWire(ByteReader& in)
{
    Record record;
    readBody(in, record);
    return chunkOf<HydSensorChunk>(in, record);
}

template <class Record, uint16_t Type> void HydSensorChunk<Record, Type>::serialize(ByteStream& out) const
{
    writeBody(out, m_record);
}

template class HydSensorChunk<stBATTERY_CHUNK_V0, ChunkBattery>;
template class HydSensorChunk<stACC_MAG_CHUNK_V0, ChunkAccMag>;
template class HydSensorChunk<stTIME_SYNC_CHUNK_V0, ChunkTimeSync>;
template class HydSensorChunk<stTRIGGER_CHUNK_V0, ChunkTrigger>;

std::shared_ptr<HydWavSetupChunk const> HydStreamSetupContainer::wavSetup() const
{
    const auto* held = std::get_if<std::shared_ptr<HydWavSetupChunk const>>(&m_setup);
    return held != nullptr ? *held : nullptr;
}

std::shared_ptr<HydFftSetupChunk const> HydStreamSetupContainer::fftSetup() const
{
    const auto* held = std::get_if<std::shared_ptr<HydFftSetupChunk const>>(&m_setup);
    return held != nullptr ? *held : nullptr;
}
