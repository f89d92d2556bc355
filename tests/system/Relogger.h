#pragma once

#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "NvxQtCommon/replay/NvxWAVFile.h"

#include <QObject>
#include <QStringList>

#include <map>
#include <memory>

/// One wave logger for each device of a replay, over as many files as are played through it.
class Relogger : public QObject
{
    Q_OBJECT

public:
    explicit Relogger(QString folder, int fileSeconds = 3600);
    ~Relogger() override;

    /// Plays a file through the loggers. False when it can't be played, or doesn't end.
    bool play(const QString& path, bool adjacent = false);
    void stop();

    /// Those that each device's logger wrote, in their order.
    std::map<HydDeviceId, QStringList> files;

private:
    void takeHeader(const std::shared_ptr<HydStreamEventHeaderPayload>& header, const HydDeviceId& id,
                    const std::shared_ptr<HydDevice>& device);

    QString m_folder;
    int m_fileSeconds;
    std::map<HydDeviceId, std::unique_ptr<NvxWavLogger>> m_loggers;
};

/// The record in the header of a wave file, null for none.
std::shared_ptr<NvxWavInfoData> infoOf(const QString& path);
