#pragma once

#include "NvxQtCommon/contract/base/Export.h"

/// Base of everything that a WavStreamEvent can carry. Made by the caller, dispatched, and deleted by the
/// caller: whoever wants to keep it copies it.
class NVXQTCOMMON_EXPORT NvxWavEventData
{
public:
    virtual ~NvxWavEventData() = 0;

protected:
    NvxWavEventData() = default;
    NvxWavEventData(const NvxWavEventData&) = default;
    NvxWavEventData& operator=(const NvxWavEventData&) = default;
};
