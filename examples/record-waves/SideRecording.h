#pragma once

#include "NvxQtCommon/logging/NvxSensorsLogger.h"
#include "NvxQtCommon/logging/NvxSpecLogger.h"
#include "NvxQtCommon/streaming/HydStreamAdapter.h"

#include <QHostAddress>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

/// What to record beside the waves.
struct SideOrder
{
    quint16 spectrumPort = 51002; ///< 0 for no spectra
    quint16 sensorPort = 51003;   ///< 0 for no sensor readings
};

/// The spectra and sensor readings of one recorder, recorded beside its waves: each kind has its stream and
/// its text files. A stream that the recorder refuses is told on the standard output, and the others go on.
class SideRecording : public QObject
{
    Q_OBJECT

public:
    /// Files end at whole multiples of the whole minutes in `fileSeconds`, or of one minute.
    SideRecording(const SideOrder& order, const QHostAddress& address, const HydDevice& device,
                  const QString& directory, int fileSeconds);
    ~SideRecording() override;

    void start();
    /// Completes the files.
    void stop();

    /// What came so far, such as "  12 spectra  3 readings"; empty while nothing did.
    QString progress() const;
    const QStringList& files() const { return m_files; }

private:
    HydStreamAdapter* addStream(HydStreamType type, quint16 port, const QHostAddress& address);
    void addSpectra(HydStreamAdapter* stream, const QString& directory, int minutes);
    void addSensors(HydStreamAdapter* stream, const QString& directory, int minutes);
    void keepFiles(NvxSpecLogger* logger);

    HydDevice m_device;
    std::vector<std::unique_ptr<HydStreamAdapter>> m_streams;
    std::vector<std::unique_ptr<NvxSpecLogger>> m_loggers;
    QStringList m_files;
    int m_spectra = 0;
    int m_readings = 0;
};
