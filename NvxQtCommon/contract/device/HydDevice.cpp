#include "NvxQtCommon/contract/device/HydDevice.h"

#include "NvxQtCommon/contract/device/DeviceVariants.h"
#include "NvxQtCommon/contract/device/SkiffDevice.h"
#include "NvxQtCommon/contract/device/ZcrDevice.h"

HydDevice::HydDevice(uint16_t serial, HydDeviceType type, const NvxNetHostInfo& info, const JobTagMap& map)
    : NvxDevice(type)
{
    NvxDevice::setSerial(serial);
    NvxDevice::setNetHostInfo(info);
    NvxDevice::mergeJobSettings(HydJobSettings(map));
}

std::shared_ptr<HydDevice> HydDevice::createDevice(HydDeviceType type)
{
    switch (type) {
    case DevTypeTmi:
        return std::make_shared<TmiDevice>(type);
    case DevTypeTdRec:
        return std::make_shared<TdRecDevice>(type);
    case DevTypeSkiff:
        return std::make_shared<SkiffDevice>(uint16_t{0}, type, NvxNetHostInfo(), JobTagMap());
    case DevTypeZcr:
        return std::make_shared<ZcrDevice>(type);
    default:
        return std::make_shared<HydDevice>(type);
    }
}

bool HydDevice::updateFromEnquire(const HydEnquireCmd& reply)
{
    bool changed = NvxDevice::updateFromEnquire(reply);
    if (!reply.hasReport())
        return changed;
    const auto& report = reply.report();
    const auto takeOver = [&changed](auto& own, const auto& reported) {
        if (own == reported)
            return;
        own = reported;
        changed = true;
    };
    takeOver(m_battStat, report.battStat);
    takeOver(m_battPercent, report.battPercent);
    takeOver(m_sensitivity, static_cast<float>(report.sensitivity) / 10.0F);
    takeOver(m_model, report.model);
    takeOver(m_firmwareRel, report.firmwareRel);
    takeOver(m_temperature, static_cast<float>(report.temperature) / 10.0F);
    takeOver(m_humidity, static_cast<float>(report.humidity) / 10.0F);
    takeOver(m_sampleRate, report.sampleRate);
    return changed;
}
