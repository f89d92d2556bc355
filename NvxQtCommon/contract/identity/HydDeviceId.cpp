#include "NvxQtCommon/contract/identity/HydDeviceId.h"

#include <array>
#include <charconv>
#include <string_view>

namespace {

struct DeviceTypeName
{
    HydDeviceType type;
    std::string_view text;
};

constexpr std::array kDeviceTypeNames{
    DeviceTypeName{DevTypeAny, "Unknown device"},   DeviceTypeName{DevTypeRecorderA, "Recorder A"},
    DeviceTypeName{DevTypeRecorderB, "Recorder B"}, DeviceTypeName{DevTypeTmi, "TMI"},
    DeviceTypeName{DevTypeTdRec, "TD recorder"},    DeviceTypeName{DevTypeSkiff, "Skiff"},
    DeviceTypeName{DevTypeZcr, "Array controller"}, DeviceTypeName{DevTypeSpecFile, "Spectrum file"},
    DeviceTypeName{DevTypeWavFile, "Wave file"},
};
constexpr std::string_view kNamelessPrefix = "Device ";

} // namespace

HydDeviceId::HydDeviceId(HydDeviceType type, uint16_t serial) : m_devType(type), m_serialNo(serial) {}

HydDeviceId::HydDeviceId(HydDeviceType type, uint16_t serial, const NvxNetHostInfo& netHostInfo)
    : m_devType(type), m_serialNo(serial), m_netHostInfo(netHostInfo)
{
}

HydDeviceId::~HydDeviceId() = default;

std::string HydDeviceId::friendlyName() const
{
    if (!m_alias.empty())
        return m_alias;
    return deviceTypeText(m_devType) + ' ' + std::to_string(m_serialNo);
}

std::string deviceTypeText(HydDeviceType type)
{
    for (const auto& name : kDeviceTypeNames) {
        if (name.type == type)
            return std::string(name.text);
    }
    return std::string(kNamelessPrefix) + std::to_string(type);
}

HydDeviceType deviceTypeFromText(const std::string& text)
{
    for (const auto& name : kDeviceTypeNames) {
        if (name.text == text)
            return name.type;
    }
    if (!text.starts_with(kNamelessPrefix))
        return DevTypeAny;
    uint8_t number = 0;
    std::from_chars(text.data() + kNamelessPrefix.size(), text.data() + text.size(), number);
    const auto type = static_cast<HydDeviceType>(number);
    // Only the text that a type really has is its own: no leading zeros, nothing behind the number.
    return deviceTypeText(type) == text ? type : DevTypeAny;
}
