#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/recording/RecordingEnums.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>

class NvxDataThread;

/// How fast a replay ticks, one byte.
enum ReplayFILEVelocity : uint8_t {
    ReplayNormal = 0, ///< real time
    ReplayDouble = 1,
    ReplayQuad = 2,
    ReplayMax = 3, ///< a fixed short period
};

/// One replay of one file: the pace of its ticks, and what its reader produces under the signals of a live
/// stream adapter. A class of each kind of file reads the header and makes the reader. Made and owned by the
/// application; all functions, slots and signals are on the thread that it lives on, which must run an event
/// loop. It may be deleted at any time, also from inside of one of its signals: the reader then ends by
/// itself. A replay's memory doesn't grow with its file: the classes of the readers tell their bounds, and
/// what the signals carry is their receivers' to let go of. The lines of text are what the application gives.
class NVXQTCOMMON_EXPORT NvxDataFile : public QObject
{
    Q_OBJECT

public:
    /// Text lines of each device, in the order in which they came.
    using EpochLog = QMap<HydDeviceId, QList<QString>>;

    explicit NvxDataFile(QObject* parent = nullptr);
    /// Asks the reader to quit, without waiting, and emits nothing.
    ~NvxDataFile() override;

    /// Ends the replay; streamFileFinished and threadFinished follow as at the end of the file.
    void processStop() { quitThread(); }
    void quitThread();
    /// Stops the ticks of a replay; the place in the file stays. A pause right behind the start of a replay
    /// is lost, since the reader starts the ticks when it is ready; this is intended.
    void processPause() { pauseThread(); }
    void pauseThread();
    /// Goes on with a whole period.
    void processResume() { resumeThread(); }
    void resumeThread();

    /// Takes effect at once, on a replay under way too. A value outside of the enumeration leaves the period
    /// as it was.
    void setReplayVel(ReplayFILEVelocity vel, int channels);
    ReplayFILEVelocity replayVel() const { return m_replayVel; }
    /// Says whether this file goes on from the one before; if so, the lines that were carried over join
    /// those of this file.
    void setAdjacent(bool adjacent, int channels);
    bool isAdjacent() const { return m_adjacent; }
    /// Computes the period of the ticks of a file of so many channels.
    void calcTimerTime(int channels);
    /// Period of the ticks in milliseconds, 500 until computed.
    qint64 timerTime() const { return m_timerTime; }
    /// The modes slow ReplayMax down: spectra in mode 3, waves in mode 1. They count from the next
    /// computation of the period on.
    void setRegFFTMode(FFTMode mode) { m_regFFTMode = mode; }
    void setRegWAVEMode(WAVEMode mode) { m_regWAVEMode = mode; }

    /// Seconds since the epoch: event time of the newest payload that has passed, or the start of the file.
    qint64 curTime() const { return m_curTime; }
    /// The recording host.
    const HydDeviceId& hostDevId() const { return m_hostDevId; }
    /// One for each channel.
    const QList<HydDeviceId>& channelDevices() const { return m_channelDevices; }
    bool containsDevId(HydDeviceId devId) const { return m_channelDevices.contains(devId); }
    /// The empty id, whatever the index: it is only looked up where it is greater than the count. This is
    /// intended.
    HydDeviceId devId(int index) const;

    /// Appends lines to those of a device that has a list; others are dropped.
    void addEpochMessg(const HydDeviceId& devId, const QList<QString>& lines);
    /// A copy of the lines of each channel's device that has a list.
    EpochLog epochLogLists() const;
    void clearEpochLog();
    /// Moves the lines of `carry` to the end of those of `current` where `adjacent` is set; otherwise throws
    /// the carried lines away. Both may be null.
    void writeEpochBuff(EpochLog* current, EpochLog* carry, bool adjacent);

    /// Connects the reader that was just made. For the classes of the kinds of files.
    void setConnections();

public Q_SLOTS:
    void handleHdrReady(std::shared_ptr<HydStreamEventHeaderPayload> pHeader, HydDeviceId devId,
                        std::shared_ptr<HydDevice> dev);
    void handleDataReady(std::shared_ptr<HydStreamDataPayload> pdata, HydDeviceId devId);
    void handleNotify(std::shared_ptr<HydStreamNotifyPayload> pnotify, HydDeviceId devId);
    void handleTotalPower(const HydDeviceId& devId, double val);
    /// One line as addEpochMessg() takes it.
    void handleTrigActiveStr(QString mes, HydDeviceId devId);

Q_SIGNALS:
    void streamHeaderReady(std::shared_ptr<HydStreamEventHeaderPayload> pHeader, HydDeviceId devId,
                           std::shared_ptr<HydDevice> dev);
    void streamDataReady(std::shared_ptr<HydStreamDataPayload> pdata, HydDeviceId devId);
    void streamNotify(std::shared_ptr<HydStreamNotifyPayload> pnotify, HydDeviceId devId);
    /// Total power of a spectrum, dB.
    void signalTotalPower(const HydDeviceId& devId, double val);
    /// The reader has ended; comes behind streamFileFinished.
    void threadFinished();
    /// `mes` is the file's name, `curTime` in seconds since the epoch, here and below.
    void streamFileStarted(QString mes, qint64 curTime);
    void streamFileFinished(qint64 curTime);
    void signalDeviceReady(HydDevice dev);

protected:
    /// Lets go of a reader: it ends and deletes itself, and reports and reads nothing more.
    void letGoOfThread();
    /// Truncates a period, to within 2^62 of 0.
    static qint64 wholeMilliseconds(double ms);

    NvxDataThread* m_thread = nullptr; ///< null but while a replay is under way
    qint64 m_baseTime = 500;           ///< milliseconds that one channel at full speed stands for
    qint64 m_curTime = 0;
    EpochLog m_epochLog;
    EpochLog m_epochCarry; ///< what crosses the border to the next file
    QList<HydDeviceId> m_channelDevices;
    HydDeviceId m_hostDevId;
    bool m_adjacent = false;
    quint32 m_dataStart = 0; ///< place of the first sample in the file, bytes
    qint8 m_ticksPerSecond = 1;

private:
    bool isReading() const;
    void handOverTimerTime();

    qint64 m_timerTime = 500;
    ReplayFILEVelocity m_replayVel = ReplayNormal;
    FFTMode m_regFFTMode = FftModeSpectrum;
    WAVEMode m_regWAVEMode = WaveModeOff;
};
