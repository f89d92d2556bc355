#include "Relogger.h"

#include "tests/replay/WavReplay.h"

Relogger::Relogger(QString folder, int fileSeconds) : m_folder(std::move(folder)), m_fileSeconds(fileSeconds)
{
}

Relogger::~Relogger() = default;

bool Relogger::play(const QString& path, bool adjacent)
{
    WavReplay replay(path);
    if (!replay.prepare())
        return false;
    replay.file.setAdjacent(adjacent, 0);
    connect(&replay.file, &NvxDataFile::streamHeaderReady, this, &Relogger::takeHeader);
    connect(&replay.file, &NvxDataFile::streamDataReady, this,
            [this](const std::shared_ptr<HydStreamDataPayload>& payload, const HydDeviceId& id) {
                m_loggers.at(id)->handleWavData(payload);
            });
    return replay.play();
}

void Relogger::stop()
{
    for (const auto& [id, logger] : m_loggers)
        logger->stopLogging();
}

void Relogger::takeHeader(const std::shared_ptr<HydStreamEventHeaderPayload>& header, const HydDeviceId& id,
                          const std::shared_ptr<HydDevice>& device)
{
    auto& logger = m_loggers[id];
    if (!logger) {
        logger = std::make_unique<NvxWavLogger>(m_fileSeconds, m_folder,
                                                QStringLiteral("AGAIN%1").arg(id.serialNo()));
        connect(logger.get(), &NvxWavLogger::newFileCreated, this,
                [this, id](const QString& name) { files[id] << name; });
    }
    logger->handleWavEventHdr(header, id, device);
}

std::shared_ptr<NvxWavInfoData> infoOf(const QString& path)
{
    NvxWAVFile file(path);
    return file.headerPrepare(true) ? file.header()->info() : nullptr;
}
