#include "NvxQtCommon/contract/recording/NvxWavHeader.h"

#include "NvxQtCommon/contract/base/Utf8.h"
#include "NvxQtCommon/contract/recording/HydUtil.h"

#include <span>
#include <string_view>

namespace {

constexpr uint16_t kPcmTag = 1;
constexpr size_t kMaxInfoText = 80;
constexpr size_t kMaxComment = 160;
constexpr uint32_t kRiffHeadSize = 8;

/// Appends numbers in the byte order of the file.
class WavByteWriter
{
public:
    explicit WavByteWriter(bool bigEndian) : m_bigEndian(bigEndian) {}

    void tag(std::string_view text) { m_bytes.insert(m_bytes.end(), text.begin(), text.end()); }
    void u16(uint16_t value) { number(value, 2); }
    void u32(uint32_t value) { number(value, 4); }
    void patchU32(size_t offset, uint32_t value)
    {
        for (size_t i = 0; i < 4; ++i)
            m_bytes[offset + i] = byteOf(value, 4, i);
    }
    /// A sub-chunk, padded to an even length.
    void chunk(std::string_view name, std::span<const uint8_t> content)
    {
        tag(name);
        u32(static_cast<uint32_t>(content.size()));
        m_bytes.insert(m_bytes.end(), content.begin(), content.end());
        if (content.size() % 2 != 0)
            m_bytes.push_back(0);
    }
    /// A readable entry: cut, and ended by a zero byte.
    void textChunk(std::string_view name, const std::string& text, size_t maxSize)
    {
        const std::string_view cut = cutUtf8(text, maxSize);
        std::vector<uint8_t> content(cut.begin(), cut.end());
        content.push_back(0);
        chunk(name, content);
    }
    size_t size() const { return m_bytes.size(); }
    std::vector<uint8_t> take() { return std::move(m_bytes); }

private:
    uint8_t byteOf(uint32_t value, size_t width, size_t index) const
    {
        return static_cast<uint8_t>(value >> (8 * (m_bigEndian ? width - 1 - index : index)));
    }
    void number(uint32_t value, size_t width)
    {
        for (size_t i = 0; i < width; ++i)
            m_bytes.push_back(byteOf(value, width, i));
    }

    std::vector<uint8_t> m_bytes;
    bool m_bigEndian;
};

std::string wavComment(const NvxWavInfoData& info, int16_t gain)
{
    std::string text = "Device " + info.deviceType(1) + ", serial " + std::to_string(info.serialNo(1));
    if (info.numChannels() > 1)
        text += " and " + std::to_string(info.numChannels() - 1) + " more";
    text += ", sensitivity " + std::to_string(info.sensitivity(1)) + " dB re 1 V/uPa";
    text += ", gain " + std::to_string(gain) + " dB";
    return text;
}

} // namespace

NvxWavFmtData::NvxWavFmtData(uint16_t numChannels, uint32_t sampleRate, uint16_t bitsPerSample)
    : m_numChannels(numChannels), m_sampleRate(sampleRate), m_bitsPerSample(bitsPerSample),
      m_blockAlign(static_cast<uint16_t>(numChannels * (bitsPerSample / 8)))
{
    m_bytesPerSec = m_sampleRate * m_blockAlign;
}

NvxWavFmtData::NvxWavFmtData(uint16_t numChannels, uint32_t sampleRate, uint32_t bytesPerSec,
                             uint16_t blockAlign, uint16_t bitsPerSample)
    : m_numChannels(numChannels), m_sampleRate(sampleRate), m_bytesPerSec(bytesPerSec),
      m_bitsPerSample(bitsPerSample), m_blockAlign(blockAlign)
{
}

bool NvxWavFmtData::isValid() const
{
    const bool knownDepth = m_bitsPerSample == 16 || m_bitsPerSample == 24 || m_bitsPerSample == 32;
    return knownDepth && m_numChannels > 0 && m_sampleRate > 0 &&
           uint64_t{m_sampleRate} * m_blockAlign <= UINT32_MAX;
}

std::vector<uint8_t> NvxWavHeader::sizeField(uint32_t size, bool bigEndian)
{
    WavByteWriter out(bigEndian);
    out.u32(size);
    return out.take();
}

std::vector<uint8_t> NvxWavHeader::fileBytes(int16_t gain) const
{
    WavByteWriter out(m_bigEndian);
    out.tag(m_bigEndian ? "RIFX" : "RIFF");
    out.u32(0);
    out.tag("WAVE");

    out.tag("fmt ");
    out.u32(16);
    out.u16(kPcmTag);
    out.u16(m_fmt->numChannels());
    out.u32(m_fmt->sampleRate());
    out.u32(m_fmt->bytesPerSec());
    out.u16(m_fmt->blockAlign());
    out.u16(m_fmt->bitsPerSamp());

    out.tag("LIST");
    const size_t listSizeOffset = out.size();
    out.u32(0);
    out.tag("INFO");
    out.textChunk("INAM", m_info->fileName(), kMaxInfoText);
    out.textChunk("ISFT", m_info->software(), kMaxInfoText);
    const long long time = m_info->timestamp();
    out.textChunk("ICRD", HydUtil::specDateStamp(time) + "T" + HydUtil::specTimeStamp(time) + "Z",
                  kMaxInfoText);
    out.textChunk("ICMT", wavComment(*m_info, gain), kMaxComment);
    out.chunk("INVX", m_info->fileBytes());
    out.patchU32(listSizeOffset, static_cast<uint32_t>(out.size() - listSizeOffset - 4));

    out.tag("data");
    out.u32(m_dataSize);
    const auto whole = out.size() - kRiffHeadSize + m_dataSize + m_dataSize % 2;
    out.patchU32(kRiffSizeOffset, static_cast<uint32_t>(whole));
    return out.take();
}
