#include "NvxQtCommon/contract/device/ZcrDevice.h"

#include "NvxQtCommon/contract/device/SkiffDevice.h"

void ZcrDevice::setDevList(std::vector<std::shared_ptr<HydDevice>>* list,
                           const std::shared_ptr<ZcrDevice>& self)
{
    for (const auto& device : m_devList) {
        auto* skiff = dynamic_cast<SkiffDevice*>(device.get());
        // It may belong to another array by now.
        if (skiff != nullptr && skiff->m_zcrDevice.lock().get() == this)
            skiff->m_zcrDevice.reset();
    }
    m_devList.clear();
    devIdList().clear();
    if (list == nullptr)
        return;
    for (const auto& device : *list) {
        if (!device)
            continue;
        m_devList.push_back(device);
        devIdList().push_back(device->deviceId());
        if (auto* skiff = dynamic_cast<SkiffDevice*>(device.get()))
            skiff->m_zcrDevice = self;
    }
}
