#pragma once

#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/job/HydJobSettings.h"
#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydTrigger.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

/// Root of the device records: what the library knows of one device. A copyable value without a thread of its
/// own; held by std::shared_ptr<HydDevice>.
class NVXQTCOMMON_EXPORT NvxDevice
{
public:
    explicit NvxDevice(HydDeviceType type = DevTypeAny) : m_id(type, 0) {}
    NvxDevice(const NvxDevice&) = default;
    NvxDevice& operator=(const NvxDevice&) = default;
    virtual ~NvxDevice();

    /// Takes over what an enquire reply reports; an enquiry without a body, an all-zero network record, and
    /// the time 0, which means unknown, change nothing. True when anything in the record changed, the time
    /// too.
    virtual bool updateFromEnquire(const HydEnquireCmd& reply);
    /// The alias, or the type's text, a blank and the serial number.
    virtual std::string friendlyText() const;
    virtual uint16_t serial() const;
    virtual void setSerial(uint16_t serial);
    virtual HydDeviceType devType() const;
    virtual const NvxNetHostInfo& netHostInfo() const;
    virtual void setNetHostInfo(const NvxNetHostInfo& info);
    virtual const HydJobSettings& jobSettings() const;
    /// Merges the tags into the settings held: equal keys are replaced, others stay.
    virtual void mergeJobSettings(const HydJobSettings& settings);
    virtual std::vector<std::shared_ptr<HydTrigger>> triggers() const;
    virtual void setTriggers(std::vector<std::shared_ptr<HydTrigger>> triggers);
    /// Empty when no trigger of that number exists. A trigger of a class that doesn't know its number is
    /// never given.
    virtual std::shared_ptr<HydTrigger> trigger(uint8_t trigNum) const;
    /// Address of the local interface through which the device was found.
    virtual void setIfaceAddr(const NvxIpAddr& address);
    /// Seconds since the epoch; 0 while the device's clock is unknown.
    virtual int timeUtc() const;
    virtual void setTimeUtc(const int& seconds);
    virtual void setCmdPortStatus(const HydPortConnStatus& status);
    virtual void setStreamPortStatus(HydPort port, HydPortConnStatus status);
    virtual void setConfigStat(HydConfigStat status);

    /// The identity, with alias, network record and the devices behind it.
    HydDeviceId deviceId() const { return m_id; }
    void setHostDevNo(uint16_t number) { m_id.setHostDevNo(number); }
    const NvxIpAddr& ifaceAddr() const { return m_ifaceAddr; }
    /// PortUnavailable until set.
    HydPortConnStatus cmdPortStatus() const { return m_cmdPortStatus; }
    HydPortConnStatus streamPortStatus(HydPort port) const;
    HydConfigStat configStat() const { return m_configStat; }
    const std::string& firmwareVer() const { return m_firmwareVer; }
    void setFirmwareVer(const std::string& version) { m_firmwareVer = version; }
    void setAlias(std::string alias) { m_id.setAlias(std::move(alias)); }
    void setDevType(HydDeviceType type) { m_id.m_devType = type; }
    /// True when the device's time follows host time.
    bool timeSync() const { return m_timeSync; }
    void setTimeSync(bool sync) { m_timeSync = sync; }
    /// Points between two spectra: the settings' own, else half of their points, else 512.
    unsigned getNumPtsFft() const;

    /// Two records are equal when they are records of the same device.
    friend bool operator==(const NvxDevice& a, const NvxDevice& b) { return a.m_id == b.m_id; }

protected:
    std::vector<HydDeviceId>& devIdList() { return m_id.devIdList(); }

private:
    HydDeviceId m_id;
    HydJobSettings m_jobSettings;
    std::vector<std::shared_ptr<HydTrigger>> m_triggers;
    NvxIpAddr m_ifaceAddr;
    int m_timeUtc = 0;
    HydPortConnStatus m_cmdPortStatus = PortUnavailable;
    std::map<HydPort, HydPortConnStatus> m_streamPortStatus;
    HydConfigStat m_configStat = ConfigNone;
    std::string m_firmwareVer;
    bool m_timeSync = false;
};
