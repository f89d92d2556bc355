#pragma once

#include "NvxQtCommon/contract/recording/NvxWavInfoData.h"

#include <cstdint>
#include <memory>
#include <vector>

/// The format block of a wave file.
class NVXQTCOMMON_EXPORT NvxWavFmtData
{
public:
    NvxWavFmtData() = default;
    NvxWavFmtData(uint16_t numChannels, uint32_t sampleRate, uint16_t bitsPerSample);
    /// The fields as a file has them, whether they fit each other or not.
    NvxWavFmtData(uint16_t numChannels, uint32_t sampleRate, uint32_t bytesPerSec, uint16_t blockAlign,
                  uint16_t bitsPerSample);

    uint16_t numChannels() const { return m_numChannels; }
    /// Hz.
    uint32_t sampleRate() const { return m_sampleRate; }
    uint16_t bitsPerSamp() const { return m_bitsPerSample; }
    /// Of all channels together.
    uint32_t bytesPerSec() const { return m_bytesPerSec; }
    /// Bytes of one sample of every channel.
    uint16_t blockAlign() const { return m_blockAlign; }
    /// False for what no wave file of this library holds: depths but 16, 24 and 32 bits, no channels, no
    /// rate, or a byte rate beyond 32 bits.
    bool isValid() const;

private:
    uint16_t m_numChannels = 0;
    uint32_t m_sampleRate = 0;
    uint32_t m_bytesPerSec = 0;
    uint16_t m_bitsPerSample = 0;
    uint16_t m_blockAlign = 0;
};

/// Everything of a wave file that stands ahead of its samples.
class NVXQTCOMMON_EXPORT NvxWavHeader
{
public:
    NvxWavHeader() = default;
    NvxWavHeader(std::shared_ptr<NvxWavFmtData> fmt, std::shared_ptr<NvxWavInfoData> info, bool bigEndian)
        : m_fmt(std::move(fmt)), m_info(std::move(info)), m_bigEndian(bigEndian)
    {
    }

    const std::shared_ptr<NvxWavFmtData>& fmt() const { return m_fmt; }
    const std::shared_ptr<NvxWavInfoData>& info() const { return m_info; }
    /// Bytes of all samples.
    unsigned dataSize() const { return m_dataSize; }
    void setDataSize(unsigned size) { m_dataSize = size; }
    bool isBigEndian() const { return m_bigEndian; }
    void setBigEndian(bool big) { m_bigEndian = big; }

    /// The file's bytes from its start to its first sample. Both records must be set. `gain` in dB goes into
    /// the comment.
    std::vector<uint8_t> fileBytes(int16_t gain) const;
    /// Where the size of the whole stands; that of the samples are the last four bytes of fileBytes().
    static constexpr size_t kRiffSizeOffset = 4;
    /// Bytes of a size field in the file's byte order.
    static std::vector<uint8_t> sizeField(uint32_t size, bool bigEndian);

private:
    std::shared_ptr<NvxWavFmtData> m_fmt;
    std::shared_ptr<NvxWavInfoData> m_info;
    unsigned m_dataSize = 0;
    bool m_bigEndian = false;
};
