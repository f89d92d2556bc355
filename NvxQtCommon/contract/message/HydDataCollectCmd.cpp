#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"

namespace {

std::shared_ptr<DataCollChunk> makeDataCollChunk(uint16_t name)
{
    switch (name) {
    case DataCollSpec:
        return std::make_shared<DataCollSpecChunk>();
    case DataCollWav:
        return std::make_shared<DataCollWavChunk>();
    case DataCollSpecTime:
        return std::make_shared<DataCollSpecTimeChunk>();
    case DataCollWavTime:
        return std::make_shared<DataCollWavTimeChunk>();
    default:
        return nullptr;
    }
}

} // namespace

void DataCollWavTimeChunk::serialize(ByteStream& out) const
{
    out.putU32(m_time);
    out.putU32(m_sampsIntoSec);
}

bool DataCollWavTimeChunk::deserialize(ByteReader& in)
{
    m_time = in.u32();
    m_sampsIntoSec = in.u32();
    return in.ok();
}

void DataCollSpecTimeChunk::serialize(ByteStream& out) const
{
    out.putU32(m_time);
    out.putU32(m_sequence);
}

bool DataCollSpecTimeChunk::deserialize(ByteReader& in)
{
    m_time = in.u32();
    m_sequence = in.u32();
    return in.ok();
}

void DataCollWavChunk::serialize(ByteStream& out) const
{
    out.putU32(sampleRate);
    out.putU16(static_cast<uint16_t>(gain));
    out.putU8(format);
    out.putU8(channels);
    out.putU16(count);
    out.putBytes(samples);
}

bool DataCollWavChunk::deserialize(ByteReader& in)
{
    sampleRate = in.u32();
    gain = in.i16();
    format = in.u8();
    channels = in.u8();
    count = in.u16();
    const size_t bytesPerFrame = size_t{channels} * (format & 0x0FU);
    if (count != 0 && bytesPerFrame == 0)
        in.fail();
    const auto bytes = in.take(count * bytesPerFrame);
    samples.assign(bytes.begin(), bytes.end());
    return in.ok();
}

void DataCollSpecChunk::serialize(ByteStream& out) const
{
    out.putU32(sampleRate);
    out.putU16(points);
    out.putU16(static_cast<uint16_t>(refLevel));
    out.putU16(procType);
    out.putU16(pointsBtw);
    out.putU16(accum);
    out.putU16(weight);
    out.putBytes(bins);
}

bool DataCollSpecChunk::deserialize(ByteReader& in)
{
    sampleRate = in.u32();
    points = in.u16();
    refLevel = in.i16();
    procType = in.u16();
    pointsBtw = in.u16();
    accum = in.u16();
    weight = in.u16();
    const auto bytes = in.take(in.remaining());
    bins.assign(bytes.begin(), bytes.end());
    return in.ok();
}

std::shared_ptr<const DataCollChunk> HydDataCollectCmd::getChunk(DataCollMask mask) const
{
    const auto found = m_chunks.find(mask);
    return found == m_chunks.end() ? nullptr : found->second;
}

void HydDataCollectCmd::setChunk(DataCollMask mask, std::shared_ptr<const DataCollChunk> chunk)
{
    if (chunk)
        m_chunks[mask] = std::move(chunk);
    else
        m_chunks.erase(mask);
}

void HydDataCollectCmd::serialize(ByteStream& out) const
{
    out.putU8(m_mask);
    for (const auto& [name, chunk] : m_chunks) {
        out.putU16(name);
        const auto lengthAt = out.size();
        out.putU16(0);
        chunk->serialize(out);
        // A length that exceeds 16 bits belongs to a payload that no frame takes.
        out.patchU16(lengthAt, static_cast<uint16_t>(out.size() - lengthAt - 2));
    }
}

bool HydDataCollectCmd::deserialize(ByteReader& in)
{
    m_chunks.clear();
    m_mask = in.u8();
    while (in.ok() && !in.atEnd()) {
        const auto name = in.u16();
        ByteReader body(in.take(in.u16()));
        const auto chunk = makeDataCollChunk(name);
        if (!in.ok() || !chunk)
            continue;
        if (!chunk->deserialize(body) || !body.atEnd())
            in.fail();
        m_chunks[static_cast<DataCollMask>(name)] = chunk;
    }
    return in.ok();
}
