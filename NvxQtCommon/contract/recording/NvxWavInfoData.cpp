#include "NvxQtCommon/contract/recording/NvxWavInfoData.h"

NvxWavInfoData::~NvxWavInfoData() = default;

uint32_t NvxWavInfoData::timestamp() const
{
    return m_timestamp;
}

void NvxWavInfoData::setTimestamp(uint32_t time)
{
    m_timestamp = time;
}

uint64_t NvxWavInfoData::startSample() const
{
    return m_startSample;
}

void NvxWavInfoData::setStartSample(uint64_t sample)
{
    m_startSample = sample;
}

std::string NvxWavInfoData::fileName() const
{
    return m_fileName;
}

void NvxWavInfoData::applyFileName(const std::string& name)
{
    m_fileName = name;
}

std::string NvxWavInfoData::software(unsigned char) const
{
    return m_software;
}

void NvxWavInfoData::setSoftware(const std::string& text)
{
    m_software = text;
}

void NvxWavInfoData::setPeakVolts(float volts)
{
    m_peakVolts = volts;
}

void NvxWavInfoData::setFullScaleCount(int32_t count)
{
    m_fullScaleCount = count;
}
