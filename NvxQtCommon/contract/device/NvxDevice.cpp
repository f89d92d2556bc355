#include "NvxQtCommon/contract/device/NvxDevice.h"

#include <algorithm>

NvxDevice::~NvxDevice() = default;

bool NvxDevice::updateFromEnquire(const HydEnquireCmd& reply)
{
    if (!reply.hasReport())
        return false;
    const auto& report = reply.report();
    bool changed = false;
    const auto takeOver = [&changed](auto& own, const auto& reported) {
        if (own == reported)
            return;
        own = reported;
        changed = true;
    };
    takeOver(m_id.m_devType, report.devType);
    takeOver(m_id.m_serialNo, report.serial);
    takeOver(m_id.m_hostDevNo, report.hostDevNo);
    if (report.netHostInfo != NvxNetHostInfo())
        takeOver(m_id.m_netHostInfo, report.netHostInfo);
    if (report.timeUtc != 0)
        takeOver(m_timeUtc, report.timeUtc);
    takeOver(m_firmwareVer, report.firmwareVer);
    return changed;
}

std::string NvxDevice::friendlyText() const
{
    return m_id.friendlyName();
}

uint16_t NvxDevice::serial() const
{
    return m_id.serialNo();
}

void NvxDevice::setSerial(uint16_t serial)
{
    m_id.m_serialNo = serial;
}

HydDeviceType NvxDevice::devType() const
{
    return m_id.devType();
}

const NvxNetHostInfo& NvxDevice::netHostInfo() const
{
    return m_id.netHostInfo();
}

void NvxDevice::setNetHostInfo(const NvxNetHostInfo& info)
{
    m_id.setNetHostInfo(info);
}

const HydJobSettings& NvxDevice::jobSettings() const
{
    return m_jobSettings;
}

void NvxDevice::mergeJobSettings(const HydJobSettings& settings)
{
    m_jobSettings.mergeMap(settings.map());
}

std::vector<std::shared_ptr<HydTrigger>> NvxDevice::triggers() const
{
    return m_triggers;
}

void NvxDevice::setTriggers(std::vector<std::shared_ptr<HydTrigger>> triggers)
{
    m_triggers = std::move(triggers);
}

std::shared_ptr<HydTrigger> NvxDevice::trigger(uint8_t trigNum) const
{
    for (const auto& trigger : m_triggers) {
        const auto* numbered = dynamic_cast<const HydTrigger_5_6*>(trigger.get());
        if (numbered != nullptr && numbered->trigNum() == trigNum)
            return trigger;
    }
    return nullptr;
}

void NvxDevice::setIfaceAddr(const NvxIpAddr& address)
{
    m_ifaceAddr = address;
}

int NvxDevice::timeUtc() const
{
    return m_timeUtc;
}

void NvxDevice::setTimeUtc(const int& seconds)
{
    m_timeUtc = seconds;
}

void NvxDevice::setCmdPortStatus(const HydPortConnStatus& status)
{
    m_cmdPortStatus = status;
}

void NvxDevice::setStreamPortStatus(HydPort port, HydPortConnStatus status)
{
    m_streamPortStatus[port] = status;
}

void NvxDevice::setConfigStat(HydConfigStat status)
{
    m_configStat = status;
}

HydPortConnStatus NvxDevice::streamPortStatus(HydPort port) const
{
    const auto found = m_streamPortStatus.find(port);
    return found == m_streamPortStatus.end() ? PortUnavailable : found->second;
}

unsigned NvxDevice::getNumPtsFft() const
{
    constexpr unsigned defaultPoints = 512;
    if (m_jobSettings.fftPointsBtw() != 0)
        return m_jobSettings.fftPointsBtw();
    const unsigned half = m_jobSettings.fftPoints() / 2;
    return half != 0 ? half : defaultPoints;
}
