#include "NvxQtCommon/contract/recording/NvxWavHeaderProcessor.h"

#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr size_t kTagBytes = 4;
constexpr size_t kFileHeadBytes = 12;
constexpr size_t kChunkHeadBytes = 8;
constexpr uint32_t kPlainFormatBytes = 16;
constexpr uint32_t kExtensibleFormatBytes = 40;
constexpr size_t kSubFormatOffset = 24;
constexpr uint16_t kPlainFormatTag = 1;
constexpr uint16_t kExtensibleTag = 0xFFFE;
constexpr uint16_t kMinBits = 8;
constexpr uint16_t kMaxBits = 32;
constexpr size_t kKindOffset = 2;

bool isTag(std::span<const uint8_t> bytes, size_t offset, std::string_view tag)
{
    return bytes.size() >= offset + tag.size() && std::equal(tag.begin(), tag.end(), bytes.data() + offset);
}

uint64_t paddedSize(uint64_t size)
{
    return size + size % 2;
}

std::shared_ptr<NvxWavInfoData> ownRecord(std::span<const uint8_t> bytes)
{
    if (bytes.size() <= kKindOffset)
        return nullptr;
    if (bytes[kKindOffset] == static_cast<uint8_t>(NvxWavInfoFields::Kind::Array))
        return NvxWavInfoDataTMI::fromBytes(bytes);
    return NvxWavInfoDataHF::fromBytes(bytes);
}

std::shared_ptr<NvxWavInfoData> defaultRecord(uint16_t numChannels)
{
    std::shared_ptr<NvxWavInfoData> info;
    if (numChannels == 1)
        info = std::make_shared<NvxWavInfoDataHF>();
    else
        info = std::make_shared<NvxWavInfoDataTMI>(static_cast<unsigned char>(numChannels));
    for (unsigned channel = 0; channel <= numChannels; ++channel)
        info->setDeviceType(DevTypeWavFile, static_cast<unsigned char>(channel));
    return info;
}

} // namespace

WavReadEvent::~WavReadEvent() = default;

NvxWavHeaderProcessor::NvxWavHeaderProcessor(int /*channelHint*/) {}

int NvxWavHeaderProcessor::handleEvent(int state, StateEvent& event)
{
    auto* read = dynamic_cast<WavReadEvent*>(&event);
    if (read == nullptr || read->buffer() == nullptr)
        return state;
    CircularByteBuffer& ring = *read->buffer();
    while (state != kEndState && !ring.isEmpty())
        state = step(state, ring);
    ring.clear();
    m_outOfData = state != kEndState;
    return state;
}

int NvxWavHeaderProcessor::step(int state, CircularByteBuffer& ring)
{
    switch (state) {
    case FileHead:
        if (!collect(ring, kFileHeadBytes))
            return state;
        if (!isTag(m_kept, 8, "WAVE"))
            return end(WavHeaderNoWave);
        m_kept.clear();
        return ChunkHead;
    case ChunkHead:
        return collect(ring, kChunkHeadBytes) ? beginChunk() : state;
    case Format:
        return collect(ring, std::min(m_chunkSize, kExtensibleFormatBytes)) ? readFormat() : state;
    case List:
        return collect(ring, std::min(m_chunkSize, kMaxListBytes)) ? readList() : state;
    case Skipping: {
        const uint64_t skipped = ring.skip(m_toSkip);
        m_toSkip -= skipped;
        m_position += skipped;
        return m_toSkip == 0 ? ChunkHead : Skipping;
    }
    default:
        return collect(ring, kTagBytes) ? begin() : Start;
    }
}

bool NvxWavHeaderProcessor::collect(CircularByteBuffer& ring, size_t wanted)
{
    const size_t before = m_kept.size();
    m_kept.resize(before + static_cast<size_t>(std::min<uint64_t>(wanted - before, ring.byteCount())));
    m_position += ring.read(m_kept.data() + before, m_kept.size() - before);
    return m_kept.size() == wanted;
}

int NvxWavHeaderProcessor::begin()
{
    m_position = kTagBytes;
    if (m_error == WavHeaderNoInfo && m_header && isTag(m_kept, 0, "LIST")) {
        m_atTail = true;
        return ChunkHead;
    }
    m_atTail = false;
    m_hasInfoChunk = false;
    m_header.reset();
    m_fmt.reset();
    m_info.reset();
    m_error = WavHeaderTruncated;
    m_headerSize = 0;
    m_listChunkSize = 0;
    m_bigEndian = isTag(m_kept, 0, "RIFX");
    if (!m_bigEndian && !isTag(m_kept, 0, "RIFF"))
        return end(WavHeaderNoWave);
    return FileHead;
}

int NvxWavHeaderProcessor::beginChunk()
{
    m_chunkSize = u32(m_kept, kTagBytes);
    const bool isFormat = isTag(m_kept, 0, "fmt ");
    const bool isList = isTag(m_kept, 0, "LIST");
    const bool isData = isTag(m_kept, 0, "data");
    m_kept.clear();
    if (isData && !m_atTail)
        return endAtSamples(m_chunkSize);
    if (m_position + paddedSize(m_chunkSize) > kMaxBytesAhead)
        return end(WavHeaderBadSize);
    if (isFormat && !m_fmt) {
        if (m_chunkSize < kPlainFormatBytes)
            return end(WavHeaderBadSize);
        return Format;
    }
    if (isList && m_chunkSize >= kTagBytes)
        return List;
    return skipRest(0);
}

int NvxWavHeaderProcessor::readFormat()
{
    const uint16_t numChannels = u16(2);
    const uint32_t sampleRate = u32(m_kept, 4);
    const uint16_t blockAlign = u16(12);
    const uint16_t bits = u16(14);
    uint32_t tag = u16(0);
    if (tag == kExtensibleTag) {
        if (m_chunkSize < kExtensibleFormatBytes)
            return end(WavHeaderBadSize);
        tag = extensibleKind();
    }
    if (tag != kPlainFormatTag || numChannels == 0 || numChannels > kMaxChannels || sampleRate == 0 ||
        bits < kMinBits || bits > kMaxBits)
        return end(WavHeaderBadFormat);
    if (blockAlign != numChannels * ((bits + 7U) / 8U))
        return end(WavHeaderBadSize);
    m_fmt = std::make_shared<NvxWavFmtData>(numChannels, sampleRate, u32(m_kept, 8), blockAlign, bits);
    return skipRest(m_kept.size());
}

uint32_t NvxWavHeaderProcessor::extensibleKind() const
{
    // The kind is a number of 32 bits, of which some tools write only the first half in the order of a
    // big-endian file.
    const uint16_t half = u16(kSubFormatOffset);
    return m_bigEndian && half != 0 ? half : u32(m_kept, kSubFormatOffset);
}

int NvxWavHeaderProcessor::readList()
{
    if (!isTag(m_kept, 0, "INFO"))
        return skipRest(m_kept.size());
    m_hasInfoChunk = true;
    if (!m_info)
        readRecord(std::span(m_kept).subspan(kTagBytes));
    if (!m_atTail)
        return skipRest(m_kept.size());
    m_listChunkSize = m_chunkSize;
    m_headerSize += static_cast<uint32_t>(kChunkHeadBytes) + m_chunkSize;
    if (m_info)
        makeHeader(m_info, m_header->dataSize());
    return end(WavHeaderGood);
}

int NvxWavHeaderProcessor::skipRest(uint64_t kept)
{
    m_kept.clear();
    m_toSkip = paddedSize(m_chunkSize) - kept;
    return Skipping;
}

void NvxWavHeaderProcessor::readRecord(std::span<const uint8_t> list)
{
    while (list.size() >= kChunkHeadBytes) {
        const uint64_t size = u32(list, kTagBytes);
        const bool isOurs = isTag(list, 0, "INVX");
        list = list.subspan(kChunkHeadBytes);
        if (size > list.size())
            return;
        if (isOurs) {
            m_info = ownRecord(list.first(static_cast<size_t>(size)));
            return;
        }
        list = list.subspan(static_cast<size_t>(std::min<uint64_t>(paddedSize(size), list.size())));
    }
}

int NvxWavHeaderProcessor::endAtSamples(uint32_t dataSize)
{
    if (!m_fmt)
        return end(WavHeaderBadFormat);
    m_headerSize = static_cast<uint32_t>(m_position);
    makeHeader(m_info ? m_info : defaultRecord(m_fmt->numChannels()), dataSize);
    return end(m_hasInfoChunk ? WavHeaderGood : WavHeaderNoInfo);
}

void NvxWavHeaderProcessor::makeHeader(std::shared_ptr<NvxWavInfoData> info, uint32_t dataSize)
{
    m_header = std::make_shared<NvxWavHeader>(m_fmt, std::move(info), m_bigEndian);
    m_header->setDataSize(dataSize);
}

int NvxWavHeaderProcessor::end(WavHeaderErr error)
{
    m_kept.clear();
    // A tail that doesn't read takes nothing away from the header that was read before.
    m_error = m_atTail && error != WavHeaderGood ? WavHeaderNoInfo : error;
    return kEndState;
}

uint16_t NvxWavHeaderProcessor::u16(size_t offset) const
{
    const unsigned first = m_kept[offset];
    const unsigned second = m_kept[offset + 1];
    return static_cast<uint16_t>(m_bigEndian ? first << 8 | second : second << 8 | first);
}

uint32_t NvxWavHeaderProcessor::u32(std::span<const uint8_t> bytes, size_t offset) const
{
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
        value = value << 8 | bytes[offset + (m_bigEndian ? i : 3 - i)];
    return value;
}
