#pragma once

#include "NvxQtCommon/contract/stream/StreamChunks.h"

/// One block of samples or one spectrum. The byte values are writable in place; whoever shares a chunk
/// between consumers shares its buffers. The order of the virtual functions is fixed, numSamples() the ninth,
/// bytes() the tenth and doubles() the fourteenth with the destructor as the first: new ones go to the end.
class NVXQTCOMMON_EXPORT HydStreamDataChunk : public HydStreamChunk
{
public:
    uint16_t chunkType() const override { return ChunkData; }
    /// Position of the first sample in its event, per channel.
    virtual uint32_t sampleNum() const = 0;
    virtual uint8_t numChannels() const = 0;
    /// Low four bits the bytes per sample, bit 7 set for little-endian: the other way round than on a wave
    /// setup chunk, and meant so.
    virtual uint8_t sampleFormat() const = 0;
    virtual uint8_t bytesPerSample() const { return sampleFormat() & 0x0F; }
    virtual uint8_t bitDepth() const { return static_cast<uint8_t>(bytesPerSample() * 8); }
    /// Values of each channel.
    virtual uint16_t numSamples() const = 0;
    /// The byte values: a wave block holds numSamples x numChannels x bytes per sample, frame by frame; a
    /// spectrum holds one byte a bin whatever its format byte says. Null for a chunk without bytes.
    virtual std::shared_ptr<unsigned char[]> bytes() const = 0;
    /// Bytes that bytes() really holds, where that is known (chunks off the wire); else numSamples x
    /// numChannels x bytes per sample.
    virtual size_t byteSize() const = 0;
    virtual bool isBigEndian() const { return (sampleFormat() & 0x80) == 0; }
    /// Readies the double values for `count` entries, all 0.
    virtual void resetDoubles(unsigned count) = 0;
    /// The double values, as many as resetDoubles() made; null before.
    virtual std::shared_ptr<double[]> doubles() const = 0;
};

class NVXQTCOMMON_EXPORT HydStreamDataChunkV0 : public HydStreamDataChunk
{
public:
    /// Takes ownership of `data`, an array made with new[] that holds at least what bytes() promises.
    HydStreamDataChunkV0(unsigned start, unsigned char channels, unsigned char format, unsigned short count,
                         unsigned char* data, bool reserved);
    /// A chunk of `byteCount` zero bytes; without bytes for 0.
    HydStreamDataChunkV0(unsigned start, unsigned char channels, unsigned char format, unsigned short count,
                         unsigned byteCount, bool reserved);
    /// Takes ownership of a buffer of a known size.
    HydStreamDataChunkV0(unsigned start, unsigned char channels, unsigned char format, unsigned short count,
                         std::shared_ptr<unsigned char[]> data, size_t byteCount);
    /// Reads the chunk's body; the bytes behind the fixed fields must be what a wave block (or, where
    /// `spectrum`, a spectrum) of these fields holds. Empty when they are not, and for a count without bytes.
    static std::shared_ptr<HydStreamDataChunkV0> fromWire(ByteReader& in, bool spectrum);

    void serialize(ByteStream& out) const override;
    uint32_t sampleNum() const override { return m_start; }
    uint8_t numChannels() const override { return m_channels; }
    uint8_t sampleFormat() const override { return m_format; }
    uint16_t numSamples() const override { return m_count; }
    std::shared_ptr<unsigned char[]> bytes() const override { return m_bytes; }
    size_t byteSize() const override { return m_byteSize; }
    void resetDoubles(unsigned count) override;
    std::shared_ptr<double[]> doubles() const override { return m_doubles; }

private:
    uint32_t m_start;
    uint8_t m_channels;
    uint8_t m_format;
    uint16_t m_count;
    std::shared_ptr<unsigned char[]> m_bytes;
    size_t m_byteSize = 0;
    std::shared_ptr<double[]> m_doubles;
};
