#include "replay-file/ReplayLog.h"

#include "shared/FilePrefix.h"

namespace {

constexpr int kWaveFileSeconds = 60;

} // namespace

ReplayLog::ReplayLog(QString directory) : m_directory(std::move(directory)) {}

ReplayLog::~ReplayLog() = default;

void ReplayLog::takeHeader(const std::shared_ptr<HydStreamEventHeaderPayload>& header, const HydDeviceId& id,
                           const std::shared_ptr<HydDevice>& device)
{
    if (isSpectrumLike(header->streamType))
        spectrumLogger(id).handleEventHdr(header, id, device);
    else
        waveLogger(id).handleWavEventHdr(header, id, device);
}

void ReplayLog::takeData(const std::shared_ptr<HydStreamDataPayload>& data, const HydDeviceId& id)
{
    if (!isSpectrumLike(data->streamType)) {
        waveLogger(id).handleWavData(data);
        return;
    }
    spectrumLogger(id).handleData(data, id);
    // A spectrum logger tells of a failure in the log alone; it has no file then.
    m_failed = m_failed || m_textFiles.isEmpty();
}

NvxWavLogger& ReplayLog::waveLogger(const HydDeviceId& id)
{
    auto& logger = m_waves[id];
    if (!logger) {
        logger =
            std::make_unique<NvxWavLogger>(kWaveFileSeconds, m_directory, filePrefix("REC", id.serialNo()));
        connect(logger.get(), &NvxWavLogger::newFileCreated, this,
                [this](const QString& name) { m_waveFiles << name; });
        connect(logger.get(), &NvxWavLogger::loggingFailed, this, [this] { m_failed = true; });
    }
    return *logger;
}

NvxSpecLogger& ReplayLog::spectrumLogger(const HydDeviceId& id)
{
    auto& logger = m_spectra[id];
    if (!logger) {
        // No limit of records: one file for each device.
        logger = std::make_unique<NvxSpecLogger>(0, m_directory, filePrefix("SPC", id.serialNo()), nullptr);
        connect(logger.get(), &NvxSpecLogger::newFileCreated, this,
                [this](const QString& name) { m_textFiles << name; });
    }
    return *logger;
}

void ReplayLog::stop()
{
    for (const auto& [id, logger] : m_waves)
        logger->stopLogging();
    for (const auto& [id, logger] : m_spectra)
        logger->stopLogging();
}
