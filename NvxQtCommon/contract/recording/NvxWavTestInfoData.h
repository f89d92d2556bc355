#pragma once

#include "NvxQtCommon/contract/identity/HydEnums.h"
#include "NvxQtCommon/contract/recording/NvxWavEventData.h"

#include <cstdint>
#include <string>

/// One timing record of a wave stream: when an event header reached the computer. A copyable value.
class NVXQTCOMMON_EXPORT NvxWavTestInfoData : public NvxWavEventData
{
public:
    ~NvxWavTestInfoData() override;

    uint32_t time = 0;   ///< the event's time, whole seconds since the epoch
    int64_t curTime = 0; ///< the computer's time at the moment of logging, milliseconds since the epoch
    uint64_t seqNum = 0; ///< running sample number of the event
    std::wstring filename;
    HydDeviceType deviceType = DevTypeAny;
    uint16_t serialNo = 0;
};
