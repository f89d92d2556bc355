#pragma once

#include "NvxQtCommon/streaming/HydStreamAdapter.h"

/// The epoch stream of one recorder: a text line for each start and end of a trigger, from the connection on,
/// without a start message. Emits each line as a trigger's occurrence and as a payload without samples, whose
/// event key tells time, number of the start, trigger and state. Owned, threaded and deleted like
/// HydStreamAdapter; isStreaming() stays false. Without a socket its operations do nothing.
///
/// Each read of the socket is taken apart for itself: a line that comes in two reads counts as two lines. A
/// device writes whole lines at once, so this happens only to those that come too fast.
class NVXQTCOMMON_EXPORT HydEpochStreamAdapter : public HydStreamAdapter
{
    Q_OBJECT

public:
    /// As HydStreamAdapter's. `streamType` is StreamEpoch: with another one, delayed starts send the start
    /// message of a binary stream.
    HydEpochStreamAdapter(HydStreamType streamType, unsigned short port, HydDeviceId deviceId,
                          int alivePeriodMs, bool createSocket);
    HydEpochStreamAdapter(HydStreamType streamType, unsigned short port, QString ipAddress,
                          HydDeviceId deviceId, int alivePeriodMs, bool createSocket);

    /// Takes the wiring of binary streams off the socket: after prepare(), which makes it.
    void createConnections();
    /// Beeps at each start of a trigger, in the thread of the windows; not at all in a program that has no
    /// QGuiApplication.
    void setTrigAlarm(bool alarm) { m_trigAlarm = alarm; }

Q_SIGNALS:
    /// A trigger started or ended. A line of another serial number than this stream's device comes with that
    /// number and without a type.
    void signalTrigActive(SActiveTrigger actTrig);

public Q_SLOTS:
    /// Connects where need be, and reads from here on. Lines that wait since a stop come too, those of a
    /// connection that was lost meanwhile within this call.
    void startStream();
    /// Starts when `devId` is this stream's device; after `delay` milliseconds where it isn't connected yet.
    void startStreamDevId(HydDeviceId const& devId, int delay);
    /// The same with a duration in seconds, which is taken over for any `devId`; 0 in
    /// place of another one lets the alive timer start the stream again and again, also after stopStream().
    void startSensorsStreamDevId(HydDeviceId const& devId, int delay, uint16_t duration);
    /// Only ends the reading: what arrives stays in the socket, up to its buffer's size, until the next
    /// start. Nothing is sent or emitted. A duration that went back to 0 undoes a stop, by the alive timer's
    /// next start: set another one first.
    void stopStream();
    /// Takes all that has arrived. A line of at most 19 characters is skipped; one that is no trigger's ends
    /// the read, and the lines behind it are lost. Inside a slot on a line it does nothing: what has arrived
    /// by then is read after the lines before it.
    void readStream();

private:
    void startEpochStream();
    void readWaiting();
    bool handleLine(QStringView line);

    QMetaObject::Connection m_epochConnection;
    bool m_trigAlarm = false;
    bool m_isReading = false;
    bool m_startsAfterReading = false;
};
