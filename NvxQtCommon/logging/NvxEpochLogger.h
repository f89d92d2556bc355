#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/job/HydJobEnums.h"
#include "NvxQtCommon/control/MetaTypes.h"
#include "NvxQtCommon/control/SActiveTrigger.h"

#include <QDateTime>
#include <QFile>
#include <QObject>
#include <QString>

#include <cstdint>

/// The diary of a recording: each occurrence of a trigger and each start and stop of a stream is a line of a
/// text file. A file is opened for the device and day of an occurrence, and later sessions of that day go on
/// with it; while it is open it takes everything, whatever the day and the device. The application makes one,
/// feeds it and owns it; all on its thread. A slot on one of its signals may delete it. A file that can't be
/// opened is an error; a line that can't be written isn't. Of such lines the first 16 KiB are held and
/// follow once there is room, as long as the file is open; the others are lost without a word. The lines
/// before them stay whole. The destructor writes the closing line and doesn't emit anything.
class NVXQTCOMMON_EXPORT NvxEpochLogger : public QObject
{
    Q_OBJECT

public:
    /// The first argument is ignored. `logPath` is an existing directory; `epochPercent` is the part of a
    /// measured event over the threshold that counts, in percent: lines show it from 1 to 99.
    NvxEpochLogger(int unused, QString logPath, int epochPercent, QObject* parent);
    ~NvxEpochLogger() override;

    /// True when a file is open, after it was opened where none was: the day's file of the trigger's device,
    /// or a new one that bears `dt`. A stop alone opens none.
    bool fileCheck(const SActiveTrigger& trigger, const QDateTime& dt);
    /// Writes a closing line and closes the file, if one is open.
    void fileClose(const QString& msg);
    /// Path of the open file, else empty.
    QString logPath() const;

    /// Begins the names of files to come. One with a path separator makes opening fail.
    void setFilePrefix(const QString& prefix) { m_filePrefix = prefix; }
    /// Whose serial number the opening and closing lines bear.
    void setDevId(const HydDeviceId& devId) { m_devId = devId; }
    /// Whether device occurrences are logged.
    void setLogDevMode(HydLogMode mode) { m_logDevMode = mode; }
    /// Whether program occurrences are logged.
    void setLogProgMode(HydLogMode mode) { m_logProgMode = mode; }
    /// Seconds of a measured event. Above 0 they also set the count of measurements that lines show as
    /// 100 %: these seconds * 100 / the constructor's percentage.
    void setMeasEventDur(int seconds);

public Q_SLOTS:
    /// Writes the opening line and leaves the file closed; nothing while device occurrences aren't logged.
    /// The file is that of the day in UTC; the first line of a device may be of another, local day.
    void startLogging();
    /// Writes the closing line, as far as a file is open, and emits loggingStopped() in any case.
    void stopLogging();
    /// As stopLogging(), 2 ms later.
    void stopStreaming();
    /// Writes an occurrence that is wanted; its line is with the system when this returns, as far as there is
    /// room. Messages (state 3) and a stop behind a stop, be it of another file, are never wanted; lines that
    /// couldn't be read (TrigInvalid) always are.
    void handleTrigActive(SActiveTrigger trigger);
    /// Deletes this 200 ms later.
    void deleteDelay();

Q_SIGNALS:
    void loggingStopped();
    void loggingStarted();
    /// Part of the interface; never emitted here, nor are the next two.
    void newFileCreated(QString name);
    void dataTime(QDateTime dtime);
    void logProgress(uint32_t secs);
    /// The file couldn't be opened; loggingStopped() follows.
    void loggingFailed(QString msg);

private Q_SLOTS:
    void handleWriteError();

private:
    bool openOfTheDay(const QString& begin);
    bool openNew(const QString& fileName);

    QFile m_file;
    QString m_logPath;
    QString m_filePrefix = QStringLiteral("VEEpoch_");
    int32_t m_epochPercent;
    int32_t m_measEventDur = 1;
    int32_t m_measCount = 4;
    uint8_t m_lastState = 0;
    HydLogMode m_logDevMode = LogOff;
    HydLogMode m_logProgMode = LogOff;
    HydDeviceId m_devId;
};
