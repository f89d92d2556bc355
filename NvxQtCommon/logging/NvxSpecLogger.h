#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/job/HydJobSettings.h"
#include "NvxQtCommon/contract/recording/DetectorSettings.h"
#include "NvxQtCommon/contract/recording/NvxSpecWriter.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"
#include "NvxQtCommon/control/MetaTypes.h"
#include "NvxQtCommon/streaming/NvxNoiseFilter.h"

#include <QDateTime>
#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>

class SpecStreamEvent;

/// Writes the spectra of a stream into text files, and is the base of the loggers of the other kinds of such
/// files. In noise mode (FftModeNoise) it also collects what it writes into a noise filter. The application
/// makes one for each recording, feeds it with the signals of a stream adapter or a replay, and owns it. It
/// is live from construction on. All operations run on the one thread that the application gives it. A slot
/// on one of its signals may delete it. The destructor completes an open file and doesn't emit anything.
class NVXQTCOMMON_EXPORT NvxSpecLogger : public QObject
{
    Q_OBJECT

public:
    /// `maxNumRecs` records make a file, 0 and less for no limit. `logPath` is an existing directory. File
    /// names are `filePrefix`, "_", date and time in UTC.
    NvxSpecLogger(int maxNumRecs, QString logPath, QString filePrefix, QObject* parent);
    ~NvxSpecLogger() override;

    /// Dispatches an event to the writer until it is consumed. A failure of the writer is a line in the log:
    /// logging goes on, and handleWriteError() is the application's to call.
    void processStreamEvent(SpecStreamEvent* event);
    /// Completes the file, and in noise mode makes the filter of what was collected. Later data begin a new
    /// file.
    void stopLogging();
    /// Reports a failure and ends the recording as stopLogging() does.
    void handleWriteError();

    void setLogPath(QString path);
    const QString& logPath() const { return m_logPath; }
    /// The device whose data are taken; those of all devices with a serial number of 0.
    void setDevId(HydDeviceId const& devId);
    HydDeviceId devId() const { return m_devId; }
    /// Stands in each record.
    void setComment(QString comment) { m_comment = std::move(comment); }
    /// Time of the file that the next one goes on from, seconds since the epoch.
    void setAdjacentT(unsigned long long time) { m_adjacentT = time; }
    void setSELSettings(SSELSettings const& settings) { m_selSettings = settings; }
    const SSELSettings& selSettings() const { return m_selSettings; }
    void setImpSettings(SImpDetectSettings const& settings) { m_impSettings = settings; }
    const SImpDetectSettings& impSettings() const { return m_impSettings; }
    /// With `timeType` files end at whole multiples of time, else by their count of records; see
    /// NvxSpecWriter.
    void setMaxNumRecs(int maxNumRecs, bool timeType);
    /// Lets files last for `minutes` at the rate of spectra of these settings, which becomes the writer's
    /// update rate. A rate of nothing counts as one spectrum a second.
    void calcMaxNumRecs(HydJobSettings const& job, int minutes);
    /// True: the device makes the spectra; false: this computer does.
    void setIfDeviceFFT(bool deviceFft);
    /// The filter that is collected; null but in noise mode.
    std::shared_ptr<NvxNoiseFilter> noiseFilter() const { return m_noiseFilter; }
    /// Kind of the files to come.
    void setTypeMode(FFTMode mode);
    /// Kind of the files to come; FftModeNoise makes the noise filter, with the device and path set until
    /// then.
    void setFFTMode(FFTMode mode);
    FFTMode typeMode() const { return m_typeMode; }
    /// Throws away what was collected, in noise mode.
    void prepareNoiseLog();
    /// Names that go into the headers of the files: computer, user, client, job, personnel. Never null; stays
    /// the logger's.
    NvxSpectrumFileHeader* fileHeader() { return &m_fileHeader; }

public Q_SLOTS:
    /// Takes over the parameters of the spectra to come. A header without a key changes nothing.
    void handleEventHdr(std::shared_ptr<HydStreamEventHeaderPayload> header, HydDeviceId devId,
                        std::shared_ptr<HydDevice> device);
    /// Writes one spectrum; one without bins is logged instead.
    void handleData(std::shared_ptr<HydStreamDataPayload> payload, HydDeviceId devId);

Q_SIGNALS:
    /// The recording has ended.
    void loggingStopped();
    /// A file was opened; `name` is its path.
    void newFileCreated(QString name);
    /// Time of each event header that was taken, UTC.
    void dataTime(QDateTime dtime);
    /// After each record: seconds in the file.
    void logProgress(uint32_t secs);
    /// The recording failed; loggingStopped() follows.
    void loggingFailed(QString msg);

protected:
    NvxSpecWriter& writer() { return m_specWriter; }
    bool takesDevice(HydDeviceId const& devId) const;
    /// `prefix_` and the time, as the name of a file.
    std::wstring fileNameAt(unsigned long long time) const;
    std::string commentText() const { return m_comment.toStdString(); }
    /// Writes a record and emits the progress. True unless a slot has deleted this.
    bool logRecord(NvxComSpectrumEventData& record, SENSOR_LOG_TYPE logType = SensorLogAccMag);

private:
    bool hasNoiseFilter() const { return m_typeMode == FftModeNoise && m_noiseFilter != nullptr; }
    void takeStatus(const HydStreamEventHeaderPayload& header, const HydDevice* device);
    void endLogging();

    HydDeviceId m_devId;
    NvxSpectrumFileHeader m_fileHeader;
    NvxSpecWriter m_specWriter;
    QString m_filePrefix;
    QString m_logPath;
    float m_secsPerRec = 0.0F;
    FFTMode m_typeMode = FftModeSpectrum;
    uint64_t m_adjacentT = 0;
    SSELSettings m_selSettings;
    SImpDetectSettings m_impSettings;
    QString m_comment;
    float m_temperature = 0.0F; ///< tenths of a degree
    float m_humidity = 0.0F;    ///< tenths of a percent
    uint32_t m_sampsPerRec = 0;
    bool m_ifDeviceFFT = true;
    std::shared_ptr<NvxNoiseFilter> m_noiseFilter;
};
