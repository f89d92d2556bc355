#pragma once

#include "NvxQtCommon/contract/device/HydDevice.h"

/// Record of an array controller with the records of the channels behind it.
class NVXQTCOMMON_EXPORT ZcrDevice : public HydDevice
{
public:
    explicit ZcrDevice(HydDeviceType type) : HydDevice(type) {}

    /// Keeps a copy of `list`, fills the record's devIdList() with its identities, and gives each SkiffDevice
    /// of it a weak reference to `self`, the shared pointer that holds this record. Devices of the list
    /// before that still refer to this record lose the reference unless they are in the new list. A null
    /// `list` counts as empty.
    void setDevList(std::vector<std::shared_ptr<HydDevice>>* list, const std::shared_ptr<ZcrDevice>& self);
    const std::vector<std::shared_ptr<HydDevice>>& devList() const { return m_devList; }

private:
    std::vector<std::shared_ptr<HydDevice>> m_devList;
};
