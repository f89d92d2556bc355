#include "NvxQtCommon/logging/NvxSensorsLogger.h"

#include "NvxQtCommon/contract/recording/SensorData.h"

namespace {

template <class Data>
std::unique_ptr<NvxComSpectrumEventData> recordOf(const std::shared_ptr<HydStatusDataPayload>& payload,
                                                  const HydDeviceId& devId)
{
    auto record = Data::fromStreamData(payload);
    record->setDevInfo(devId);
    return record;
}

} // namespace

NvxSensorsLogger::NvxSensorsLogger(int maxNumRecs, QString logPath, QString filePrefix, QObject* parent)
    : NvxSpecLogger(maxNumRecs, std::move(logPath), std::move(filePrefix), parent)
{
    setTypeMode(FftModeAccMag);
    setTimeType(true);
}

NvxSensorsLogger::~NvxSensorsLogger() = default;

void NvxSensorsLogger::setDevice(HydDevice const& device)
{
    m_device = device;
    NvxSpectrumFileHeader& header = *writer().currHeader();
    header.setComputerName(fileHeader()->computerName());
    header.setUserName(fileHeader()->userName());
    header.setClientName(fileHeader()->clientName());
    header.setJobName(fileHeader()->jobName());
    header.setPersonnel(fileHeader()->personnel());
    header.setDeviceId(devId());
    header.setFirmware(device.firmwareRel());
    header.setDevModel(device.modelString());
}

void NvxSensorsLogger::setLogParams(SENSOR_LOG_TYPE type, int maxNumRecs, QString path)
{
    m_logType = type;
    setMaxNumRecs(maxNumRecs, type == SensorLogAccMag);
    setLogPath(std::move(path));
    setTypeMode(type == SensorLogAccMag ? FftModeAccMag : FftModeBattery);
}

void NvxSensorsLogger::devTimeUpdated(HydDevice device)
{
    if (device.deviceId() == devId())
        m_device.setTimeUtc(device.timeUtc());
}

void NvxSensorsLogger::handleDataReady(std::shared_ptr<HydStatusDataPayload> payload, HydDeviceId devId)
{
    if (!payload || (!m_ready && m_logType == SensorLogAccMag) || !takesDevice(devId))
        return;
    const auto time = static_cast<uint32_t>(m_device.timeUtc());
    if (time == 0)
        return;
    const auto record = makeRecord(payload);
    if (!record)
        return;
    record->setComment(commentText());
    record->setDataTime(time);
    writer().currHeader()->setStartDt(record->dataTime());
    writer().currHeader()->setFname(fileNameAt(time));
    logRecord(*record, m_logType);
}

std::unique_ptr<NvxComSpectrumEventData>
NvxSensorsLogger::makeRecord(const std::shared_ptr<HydStatusDataPayload>& payload) const
{
    switch (m_logType) {
    case SensorLogAccMag:
        return recordOf<NvxAccMagData>(payload, devId());
    case SensorLogBattery:
        return recordOf<NvxBatteryData>(payload, devId());
    }
    return nullptr;
}
