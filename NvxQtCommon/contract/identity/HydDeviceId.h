#pragma once

#include "NvxQtCommon/contract/identity/HydEnums.h"
#include "NvxQtCommon/contract/identity/NvxNetRecords.h"

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

/// Identity of a device: a value class and a map key. Type, serial number and host device number identify;
/// network record, alias and the list of devices behind it travel along and take no part in comparisons.
class NVXQTCOMMON_EXPORT HydDeviceId
{
public:
    HydDeviceId() = default;
    HydDeviceId(HydDeviceType type, uint16_t serial);
    HydDeviceId(HydDeviceType type, uint16_t serial, const NvxNetHostInfo& netHostInfo);
    HydDeviceId(const HydDeviceId&) = default;
    HydDeviceId& operator=(const HydDeviceId&) = default;
    virtual ~HydDeviceId();

    HydDeviceType devType() const { return m_devType; }
    uint16_t serialNo() const { return m_serialNo; }
    /// Serial number of the host device when the recorder sits behind an array controller, else 0.
    uint16_t hostDevNo() const { return m_hostDevNo; }
    const NvxNetHostInfo& netHostInfo() const { return m_netHostInfo; }
    const std::string& alias() const { return m_alias; }
    /// The alias, or the type's text, a blank and the serial number where there is none.
    std::string friendlyName() const;

    void setHostDevNo(uint16_t number) { m_hostDevNo = number; }
    void setNetHostInfo(const NvxNetHostInfo& info) { m_netHostInfo = info; }
    void setAlias(std::string alias) { m_alias = std::move(alias); }

    /// Identities of the devices behind this one, filled for an array controller.
    std::vector<HydDeviceId>& devIdList() { return m_devIdList; }
    const std::vector<HydDeviceId>& devIdList() const { return m_devIdList; }

    friend bool operator==(const HydDeviceId& a, const HydDeviceId& b) { return (a <=> b) == 0; }
    friend std::strong_ordering operator<=>(const HydDeviceId& a, const HydDeviceId& b)
    {
        if (const auto order = a.m_devType <=> b.m_devType; order != 0)
            return order;
        if (const auto order = a.m_serialNo <=> b.m_serialNo; order != 0)
            return order;
        return a.m_hostDevNo <=> b.m_hostDevNo;
    }

private:
    friend class NvxDevice;

    HydDeviceType m_devType = DevTypeAny;
    uint16_t m_serialNo = 0;
    uint16_t m_hostDevNo = 0;
    NvxNetHostInfo m_netHostInfo;
    std::string m_alias;
    std::vector<HydDeviceId> m_devIdList;
};

/// Text of a device type, as names and file records carry it; "Device" and the number for a type without a
/// name.
NVXQTCOMMON_EXPORT std::string deviceTypeText(HydDeviceType type);
/// The reverse of deviceTypeText(); DevTypeAny for a text that no type has.
NVXQTCOMMON_EXPORT HydDeviceType deviceTypeFromText(const std::string& text);
