#pragma once

#include "NvxQtCommon/logging/NvxSpecLogger.h"
#include "NvxQtCommon/logging/NvxWavLogger.h"

#include <QObject>
#include <QStringList>

#include <map>
#include <memory>

/// Writes what is played into files again: a logger for each device and kind of stream, as a live stream has
/// it.
class ReplayLog : public QObject
{
    Q_OBJECT

public:
    /// The directory must exist.
    explicit ReplayLog(QString directory);
    ~ReplayLog() override;

    void takeHeader(const std::shared_ptr<HydStreamEventHeaderPayload>& header, const HydDeviceId& id,
                    const std::shared_ptr<HydDevice>& device);
    void takeData(const std::shared_ptr<HydStreamDataPayload>& data, const HydDeviceId& id);
    /// Completes the files.
    void stop();

    /// True once a file couldn't be written.
    bool hasFailed() const { return m_failed; }
    const QStringList& waveFiles() const { return m_waveFiles; }
    const QStringList& textFiles() const { return m_textFiles; }

private:
    NvxWavLogger& waveLogger(const HydDeviceId& id);
    NvxSpecLogger& spectrumLogger(const HydDeviceId& id);

    QString m_directory;
    std::map<HydDeviceId, std::unique_ptr<NvxWavLogger>> m_waves;
    std::map<HydDeviceId, std::unique_ptr<NvxSpecLogger>> m_spectra;
    QStringList m_waveFiles;
    QStringList m_textFiles;
    bool m_failed = false;
};
