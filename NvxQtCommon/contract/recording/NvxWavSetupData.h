#pragma once

#include "NvxQtCommon/contract/recording/NvxWavEventData.h"

#include <cstdint>

/// Sample format of a wave stream.
class NVXQTCOMMON_EXPORT NvxWavSetupData : public NvxWavEventData
{
public:
    ~NvxWavSetupData() override;

    void setBitDepth(unsigned char bits) { m_bitDepth = bits; }
    unsigned char bitDepth() const { return m_bitDepth; }
    unsigned bytesPerSample() const { return m_bitDepth / 8U; }
    /// dB.
    void setGain(short gain) { m_gain = gain; }
    short gain() const { return m_gain; }
    /// Hz.
    void setSampleRate(unsigned int rate) { m_sampleRate = rate; }
    unsigned int sampleRate() const { return m_sampleRate; }
    /// Byte order of the stream. It doesn't decide that of the file: NvxWavWriter::setBigEndian() does.
    void setBigEndian(bool big) { m_bigEndian = big; }
    bool isBigEndian() const { return m_bigEndian; }

private:
    uint8_t m_bitDepth = 0;
    int16_t m_gain = 0;
    uint32_t m_sampleRate = 0;
    bool m_bigEndian = false;
};
