#pragma once

#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumEventData.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <memory>
#include <string>

/// What the records of sensor messages share: the message, and whose it is. What the message doesn't hold is
/// an empty column.
class NVXQTCOMMON_EXPORT NvxSensorEventData : public NvxComSpectrumEventData
{
public:
    ~NvxSensorEventData() override;

    void setDevInfo(const HydDeviceId& id) { m_devId = id; }
    const HydDeviceId& devInfo() const { return m_devId; }

protected:
    explicit NvxSensorEventData(const HydStatusDataPayload& payload) : m_payload(payload) {}

    const HydStatusDataPayload& payload() const { return m_payload; }
    /// Appends the first four columns: time, comment and device.
    void appendOrigin(std::string& out) const;

private:
    HydStatusDataPayload m_payload;
    HydDeviceId m_devId;
};

/// Accelerometer, magnetometer and heading of a sensor message as a line of a file.
class NVXQTCOMMON_EXPORT NvxAccMagData : public NvxSensorEventData
{
public:
    explicit NvxAccMagData(const HydStatusDataPayload& payload) : NvxSensorEventData(payload) {}
    ~NvxAccMagData() override;
    /// A new record with the payload's chunks; null for null.
    static std::unique_ptr<NvxAccMagData>
    fromStreamData(const std::shared_ptr<HydStatusDataPayload>& payload);

    FFTMode fileKind(FFTMode headerMode) const override;
    void appendTitles(std::string& out, const NvxSpectrumFileHeader& header) const override;
    void appendLine(std::string& out) const override;
};

/// Battery state of a sensor message as a line of a file.
class NVXQTCOMMON_EXPORT NvxBatteryData : public NvxSensorEventData
{
public:
    explicit NvxBatteryData(const HydStatusDataPayload& payload) : NvxSensorEventData(payload) {}
    ~NvxBatteryData() override;
    /// A new record with the payload's chunks; null for null.
    static std::unique_ptr<NvxBatteryData>
    fromStreamData(const std::shared_ptr<HydStatusDataPayload>& payload);

    FFTMode fileKind(FFTMode headerMode) const override;
    void appendTitles(std::string& out, const NvxSpectrumFileHeader& header) const override;
    void appendLine(std::string& out) const override;
};
