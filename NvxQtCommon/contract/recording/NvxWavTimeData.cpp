#include "NvxQtCommon/contract/recording/NvxWavTimeData.h"

#include "NvxQtCommon/contract/base/Utf8.h"
#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/recording/HydUtil.h"

namespace {

std::string numberOrNothing(const std::optional<int>& value)
{
    return value ? std::to_string(*value) : std::string();
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

std::string NvxWavTimeData::columnTitles() const
{
    return "Time\tDate\tComputer time (ms)\tSequence\tSamples\tElapsed (ms)\tDevice\tSerial\tName\tComment";
}

std::string NvxWavTimeData::line() const
{
    const auto time = static_cast<long long>(dataTime());
    return HydUtil::specTimeStamp(time) + '\t' + HydUtil::specDateStamp(time) + '\t' +
           std::to_string(m_info.curTime) + '\t' + std::to_string(seqNum()) + '\t' +
           numberOrNothing(m_sizeData) + '\t' + numberOrNothing(m_procTime) + '\t' +
           deviceTypeText(m_info.deviceType) + '\t' + std::to_string(m_info.serialNo) + '\t' +
           toUtf8(m_info.filename) + '\t' + comment();
}
