#include "NvxQtCommon/contract/recording/NvxWavTimeData.h"

#include "NvxQtCommon/contract/base/Utf8.h"
#include "NvxQtCommon/contract/recording/RecordText.h"

namespace {

void appendKnown(std::string& out, const std::optional<int>& value)
{
    out += '\t';
    if (value)
        RecordText::appendNumber(out, *value);
}

} // namespace

NvxWavTimeData::~NvxWavTimeData() = default;

std::unique_ptr<NvxWavTimeData>
NvxWavTimeData::fromWavTestData(const std::shared_ptr<NvxWavTestInfoData>& info)
{
    if (!info)
        return nullptr;
    auto record = std::make_unique<NvxWavTimeData>();
    record->m_info = *info;
    record->setSeqNum(info->seqNum);
    record->setDataTime(info->time);
    return record;
}

FFTMode NvxWavTimeData::fileKind(FFTMode /*headerMode*/) const
{
    return FftModeWavTime;
}

void NvxWavTimeData::appendTitles(std::string& out, const NvxSpectrumFileHeader& /*header*/) const
{
    out += "Time\tComment\tDevice\tSerial\tComputer time (ms)\tSequence\tSamples\tElapsed (ms)\tName";
}

void NvxWavTimeData::appendLine(std::string& out) const
{
    appendTimeAndComment(out);
    RecordText::appendDevice(out, HydDeviceId(m_info.deviceType, m_info.serialNo));
    RecordText::appendField(out, m_info.curTime);
    RecordText::appendField(out, seqNum());
    appendKnown(out, m_sizeData);
    appendKnown(out, m_procTime);
    out += '\t';
    RecordText::appendText(out, toUtf8(m_info.filename));
}
