#pragma once

#include "NvxQtCommon/logging/NvxSpecLogger.h"

/// Writes sensor readings of one device: accelerometer and magnetometer, or battery. The records bear the
/// device's clock, as far as it was told by devTimeUpdated(). Owner and thread as NvxSpecLogger.
class NVXQTCOMMON_EXPORT NvxSensorsLogger : public NvxSpecLogger
{
    Q_OBJECT

public:
    NvxSensorsLogger(int maxNumRecs, QString logPath, QString filePrefix, QObject* parent);
    ~NvxSensorsLogger() override;

    /// Accelerometer and magnetometer are logged once this is true; battery readings don't wait for it.
    void setReady(bool ready) { m_ready = ready; }
    bool isReady() const { return m_ready; }
    void setLogType(SENSOR_LOG_TYPE type) { m_logType = type; }
    SENSOR_LOG_TYPE logType() const { return m_logType; }
    void setTimeType(bool timeType) { writer().setTimeType(timeType); }
    bool timeType() { return writer().timeType(); }
    /// Keeps the device with its clock, and tells the files of it.
    void setDevice(HydDevice const& device);
    /// What is logged, how many records make a file (accelerometer and magnetometer: how many minutes, as
    /// long as no update rate is set), and into which existing directory.
    void setLogParams(SENSOR_LOG_TYPE type, int maxNumRecs, QString path);

public Q_SLOTS:
    /// Writes one reading, unless the device's clock is unknown.
    void handleDataReady(std::shared_ptr<HydStatusDataPayload> payload, HydDeviceId devId);
    void readyToLogging() { m_ready = true; }
    /// Takes over the clock of the device of devId().
    void devTimeUpdated(HydDevice device);

private:
    std::unique_ptr<NvxComSpectrumEventData>
    makeRecord(const std::shared_ptr<HydStatusDataPayload>& payload) const;

    HydDevice m_device;
    bool m_ready = false;
    SENSOR_LOG_TYPE m_logType = SensorLogAccMag;
};
