#pragma once

#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumEventData.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <memory>
#include <string>

/// Accelerometer, magnetometer and heading of a sensor message as a line of a file. What the message doesn't
/// hold is an empty column.
class NVXQTCOMMON_EXPORT NvxAccMagData : public NvxComSpectrumEventData
{
public:
    explicit NvxAccMagData(const HydStatusDataPayload& payload) : m_payload(payload) {}
    ~NvxAccMagData() override;
    /// A new record with the payload's chunks; null for null.
    static std::unique_ptr<NvxAccMagData>
    fromStreamData(const std::shared_ptr<HydStatusDataPayload>& payload);

    void setDevInfo(const HydDeviceId& id) { m_devId = id; }
    const HydDeviceId& devInfo() const { return m_devId; }

    FFTMode fileKind(FFTMode headerMode) const override;
    void appendTitles(std::string& out, const NvxSpectrumFileHeader& header) const override;
    void appendLine(std::string& out) const override;

private:
    HydStatusDataPayload m_payload;
    HydDeviceId m_devId;
};

/// Battery state of a sensor message as a line of a file. What the message doesn't hold is an empty column.
class NVXQTCOMMON_EXPORT NvxBatteryData : public NvxComSpectrumEventData
{
public:
    explicit NvxBatteryData(const HydStatusDataPayload& payload) : m_payload(payload) {}
    ~NvxBatteryData() override;
    /// A new record with the payload's chunks; null for null.
    static std::unique_ptr<NvxBatteryData>
    fromStreamData(const std::shared_ptr<HydStatusDataPayload>& payload);

    void setDevInfo(const HydDeviceId& id) { m_devId = id; }
    const HydDeviceId& devInfo() const { return m_devId; }

    FFTMode fileKind(FFTMode headerMode) const override;
    void appendTitles(std::string& out, const NvxSpectrumFileHeader& header) const override;
    void appendLine(std::string& out) const override;

private:
    HydStatusDataPayload m_payload;
    HydDeviceId m_devId;
};
