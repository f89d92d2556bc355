#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QFile>
#include <QString>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>

/// The reader of one replay and its tick timer; a class of each kind of file overrides run() and reads at
/// the timer's timeouts. The object, its timer and all its functions belong to the thread that created it,
/// which must run an event loop; only run() is on the thread that it stands for. Made and started by a
/// NvxDataFile, from when on it deletes itself when it has finished. Never delete one that runs: quit() it.
class NVXQTCOMMON_EXPORT NvxDataThread : public QThread
{
    Q_OBJECT

public:
    /// `fileName` is the path of the file that is replayed.
    NvxDataThread(const QString& fileName, QObject* parent);
    /// Stops the timer and asks a thread that has not finished to quit, without waiting.
    ~NvxDataThread() override;

    /// Opens an ordinary file for reading, anew if it is open, and nothing that could wait or never end: no
    /// directory, device or pipe.
    static bool openForReading(QFile& file);

    const QString& fileName() const { return m_fileName; }
    /// Period of the ticks in milliseconds, 500 until set.
    qint64 timerTime() const { return m_timerTime; }
    /// Sets the period; a running timer takes it at once. Only the low 32 bits reach the timer, and where
    /// they are negative it takes its longest period. Nothing happens when it is the period already, or the
    /// timer's interval.
    void setTimerTime(qint64 ms);
    /// Stops the ticks; the place in the file stays.
    void pause();
    /// Goes on with a whole period.
    void resume();
    /// Stops the ticks and ends the thread.
    void exitThread();
    /// Stops the ticks for good and makes this object delete itself as soon as the thread has ended; what
    /// is still on its way reads nothing more, nor does the tick that it is called from. Without a parent
    /// from then on.
    void retire();

Q_SIGNALS:
    void streamHeaderReady(std::shared_ptr<HydStreamEventHeaderPayload> pHeader, HydDeviceId devId,
                           std::shared_ptr<HydDevice> dev);
    void streamDataReady(std::shared_ptr<HydStreamDataPayload> pdata, HydDeviceId devId);
    void streamNotify(std::shared_ptr<HydStreamNotifyPayload> pnotify, HydDeviceId devId);
    /// run() has made all ready, and the ticks may begin.
    void startMTimer();
    /// Total power of a spectrum, dB.
    void signalTotalPower(const HydDeviceId& devId, double val);

public Q_SLOTS:
    void slotStartTimer();

protected:
    /// For run(), when it has prepared what the ticks read: emits startMTimer.
    void beginTicks();
    /// True from beginTicks() on. An application that resumes a replay just begun lets the timer tick
    /// before; then what run() prepares must not be touched.
    bool hasBegun() const { return m_hasBegun; }
    /// True behind retire(): what the tick under way would read on is for nobody.
    bool isRetired() const { return m_isRetired; }
    /// One tick: calls `read`, which may see this object deleted by a slot. Does nothing before beginTicks(),
    /// behind the end of the thread, and inside of another tick: a slot that runs an event loop and starts
    /// the timer anew gets no data before those that its own block came with.
    void runTick(const std::function<void()>& read);

    QTimer* m_timer; ///< a child, precise

private:
    QString m_fileName;
    qint64 m_timerTime = 500;
    std::atomic<bool> m_hasBegun{false};
    bool m_isInTick = false;
    bool m_isRetired = false;
};
