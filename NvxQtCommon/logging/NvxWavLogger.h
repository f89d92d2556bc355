#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/job/HydJobEnums.h"
#include "NvxQtCommon/contract/recording/NvxSpecWriter.h"
#include "NvxQtCommon/contract/recording/NvxWavTestInfoData.h"
#include "NvxQtCommon/contract/recording/NvxWavWriter.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QDateTime>
#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>

class SpecStreamEvent;
class WavStreamEvent;

/// Turns the wave stream of one device into wave files; in timing mode it writes no audio but a timing record
/// for each event header. The application makes one for each recording, feeds it with the signals of a stream
/// adapter or a replay, and owns it. It is live from construction on: the first header starts the first file.
/// All operations run on the one thread that the application gives it. The destructor doesn't emit anything;
/// it completes an open file. A slot may delete the logger under any of its signals.
class NVXQTCOMMON_EXPORT NvxWavLogger : public QObject
{
    Q_OBJECT

public:
    /// `maxLength` in seconds, above 0: a file ends at each whole multiple of it in event time. `logPath` is
    /// an existing directory. File names are `filePrefix`, "_", date and time in UTC.
    NvxWavLogger(int maxLength, QString logPath, QString filePrefix);
    ~NvxWavLogger() override;

    /// Starts or goes on with a file. A header without a wave setup changes nothing.
    void handleWavEventHdr(std::shared_ptr<HydStreamEventHeaderPayload> header, HydDeviceId devId,
                           std::shared_ptr<HydDevice> device);
    /// Writes one block of samples.
    void handleWavData(std::shared_ptr<HydStreamDataPayload> payload);
    /// Keeps the newest heading for the files to come.
    void handleStreamStatusData(std::shared_ptr<HydStatusDataPayload> payload, HydDeviceId devId);
    /// Completes the file. What comes afterwards is dropped.
    void stopLogging();
    /// Reports the writer's error and ends the recording.
    void handleWriteError();
    /// Dispatches an event to the wave writer until it is consumed.
    void processWavStreamEvent(WavStreamEvent* event);
    /// Dispatches an event to the timing writer until it is consumed.
    void processSStreamEvent(SpecStreamEvent* event);

    /// LogOn is timing mode, anything else normal recording.
    HydLogMode wavTimeLog() const { return m_wavTimeLog; }
    void setWavTimeLog(HydLogMode mode) { m_wavTimeLog = mode; }

Q_SIGNALS:
    /// The recording has ended.
    void loggingStopped();
    /// A file was opened; `name` is its path.
    void newFileCreated(QString name);
    /// Time of each event header that was taken, UTC.
    void dataTime(QDateTime dtime);
    /// After each block: seconds in the file, and how many it will hold.
    void logProgress(uint32_t secs, uint32_t maxLen);
    /// The recording failed; loggingStopped() follows.
    void loggingFailed(QString msg);
    /// In timing mode, at each event header.
    void testDataReady(NvxWavTestInfoData testInfoData);
    /// Part of the interface; never emitted here.
    void needToAdjustTime(HydDeviceId devId);

private:
    void handleTimingHdr(const HydStreamEventHeaderPayload& header, const HydDeviceId& devId);
    void handleArrayHdr(const HydStreamEventHeaderPayload& header);
    void handleRecorderHdr(const HydStreamEventHeaderPayload& header, const HydDevice* device);
    void handleSetup(const HydStreamEventHeaderPayload& header);
    void followRollover(const HydStreamEventHeaderPayload& header);
    void fillCommonInfo(NvxWavInfoData& info, const HydStreamEventHeaderPayload& header) const;

    NvxWavWriter m_writer;
    QString m_filePrefix;
    uint32_t m_maxLength;
    QString m_logPath;
    uint8_t m_lastStatusValue = 0;
    uint32_t m_fileStartTime = 0;
    HydLogMode m_wavTimeLog = LogOff;
    int64_t m_lastSeq = 0;
    int64_t m_lastCurTime = 0;
    NvxSpecWriter m_timeWriter;
    std::shared_ptr<HydStreamHeadStatusChunk> m_headStatus;
};
