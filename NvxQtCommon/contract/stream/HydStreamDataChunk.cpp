#include "NvxQtCommon/contract/stream/HydStreamDataChunk.h"

#include "NvxQtCommon/contract/base/CopyBytes.h"

#include <algorithm>

namespace {

size_t waveBlockBytes(unsigned count, unsigned channels, unsigned bytesPerSample)
{
    return size_t{count} * channels * bytesPerSample;
}

} // namespace

HydStreamDataChunkV0::HydStreamDataChunkV0(unsigned start, unsigned char channels, unsigned char format,
                                           unsigned short count, unsigned char* data, bool /*reserved*/)
    : HydStreamDataChunkV0(
          start, channels, format, count, std::shared_ptr<unsigned char[]>(data),
          // A spectrum holds one byte a bin, whatever its format byte says.
          data != nullptr ? std::max<size_t>(waveBlockBytes(count, channels, format & 0x0FU), count) : 0)
{
}

HydStreamDataChunkV0::HydStreamDataChunkV0(unsigned start, unsigned char channels, unsigned char format,
                                           unsigned short count, unsigned byteCount, bool /*reserved*/)
    : HydStreamDataChunkV0(start, channels, format, count,
                           byteCount != 0 ? std::make_shared<unsigned char[]>(byteCount) : nullptr, byteCount)
{
}

HydStreamDataChunkV0::HydStreamDataChunkV0(unsigned start, unsigned char channels, unsigned char format,
                                           unsigned short count, std::shared_ptr<unsigned char[]> data,
                                           size_t byteCount)
    : m_start(start), m_channels(channels), m_format(format), m_count(count), m_bytes(std::move(data)),
      m_byteSize(byteCount)
{
}

std::shared_ptr<HydStreamDataChunkV0> HydStreamDataChunkV0::fromWire(ByteReader& in, bool spectrum)
{
    const uint32_t start = in.u32();
    const uint8_t channels = in.u8();
    const uint8_t format = in.u8();
    const uint16_t count = in.u16();
    const size_t size = spectrum ? size_t{count} : waveBlockBytes(count, channels, format & 0x0FU);
    // A count without bytes would let readers of numSamples() values read behind the buffer.
    if (!in.ok() || in.remaining() != size || (count != 0 && size == 0))
        return nullptr;
    std::shared_ptr<unsigned char[]> data;
    if (size != 0) {
        // The one copy on a sample's way from the socket to its consumer's payload.
        data = std::make_shared_for_overwrite<unsigned char[]>(size);
        copyBytes(data.get(), in.take(size).data(), size);
    }
    return std::make_shared<HydStreamDataChunkV0>(start, channels, format, count, std::move(data), size);
}

void HydStreamDataChunkV0::serialize(ByteStream& out) const
{
    out.putU32(m_start);
    out.putU8(m_channels);
    out.putU8(m_format);
    out.putU16(m_count);
    if (m_bytes)
        out.putBytes({m_bytes.get(), m_byteSize});
}

void HydStreamDataChunkV0::resetDoubles(unsigned count)
{
    m_doubles = std::make_shared<double[]>(count);
}
