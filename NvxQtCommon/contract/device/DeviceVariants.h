#pragma once

#include "NvxQtCommon/contract/device/HydDevice.h"

// Device records that only add to HydDevice by their class.

class NVXQTCOMMON_EXPORT TmiDevice : public HydDevice
{
public:
    explicit TmiDevice(HydDeviceType type) : HydDevice(type) {}
};

class NVXQTCOMMON_EXPORT TdRecDevice : public HydDevice
{
public:
    explicit TdRecDevice(HydDeviceType type) : HydDevice(type) {}
};
