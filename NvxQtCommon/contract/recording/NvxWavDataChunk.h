#pragma once

#include "NvxQtCommon/contract/recording/NvxWavEventData.h"

#include <cstddef>
#include <cstdint>

/// One block of samples, frame by frame. The sample memory stays the caller's and must hold byteSize() bytes
/// during the dispatch.
class NVXQTCOMMON_EXPORT NvxWavDataChunk : public NvxWavEventData
{
public:
    ~NvxWavDataChunk() override;

    void setBitDepth(unsigned char bits) { m_bitDepth = bits; }
    unsigned char bitDepth() const { return m_bitDepth; }
    /// Byte order of the samples.
    void setBigEndian(bool big) { m_bigEndian = big; }
    bool isBigEndian() const { return m_bigEndian; }
    void setNumChannels(unsigned char count) { m_numChannels = count; }
    unsigned char numChannels() const { return m_numChannels; }
    /// Samples of each channel.
    void setNumSamples(unsigned short count) { m_numSamples = count; }
    unsigned short numSamples() const { return m_numSamples; }
    /// Position of the first sample in its event, per channel.
    void setSampleNum(unsigned int number) { m_sampleNum = number; }
    unsigned int sampleNum() const { return m_sampleNum; }
    void setData(unsigned char* data) { m_data = data; }
    const unsigned char* data() const { return m_data; }
    size_t byteSize() const { return size_t{m_numSamples} * m_numChannels * (m_bitDepth / 8U); }

private:
    unsigned char* m_data = nullptr;
    uint32_t m_sampleNum = 0;
    uint16_t m_numSamples = 0;
    uint8_t m_bitDepth = 0;
    uint8_t m_numChannels = 1;
    bool m_bigEndian = false;
};
