#pragma once

#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/stream/HydStreamType.h"
#include "NvxQtSimulator/RecorderCounters.h"
#include "NvxQtSimulator/RecorderSettings.h"

#include <QObject>
#include <QStringList>

#include <map>
#include <memory>
#include <vector>

class ControlService;
class DiscoveryService;
class HydTrigger;
class RecorderState;
class SerialService;
class StreamService;

/// One recorder without hardware, on an IP address of its own: a control device (TCP port 50000), a discovery
/// responder (UDP port 62726, unicast and broadcast) and stream ports for waves, spectra, sensors and epoch
/// lines; where wanted also on a serial line, with its commands alone. Any number may run in one process. It
/// lives on the thread that calls start(), which needs an event loop; all functions belong to that thread.
///
/// Each second of samples begins with an event header (time, running sample number, identity, status, format,
/// scaling); the blocks that follow carry their position in that event. A written job setup takes effect with
/// the next second; a written time moves the times of the events that follow.
///
/// Triggers that are set fire on the recorder's signal: the level in a trigger's band in µPa is looked at
/// four times a second, over the last 4096 samples. A trigger fires once the level was on its side of the
/// threshold for its duration, and ends once it wasn't for its event hold, or when it is changed or cleared;
/// either is a line on the epoch stream.
///
/// A slot on any of its signals may stop, start again or delete it.
class SimulatedRecorder : public QObject
{
    Q_OBJECT

public:
    explicit SimulatedRecorder(const RecorderSettings& settings, QObject* parent = nullptr);
    ~SimulatedRecorder() override;

    /// Listens on the ports of all roles. False when one isn't free: errorString() names it, and nothing
    /// stays open. A recorder that listens already stays as it is.
    bool start();
    /// Closes all ports and connections. What a reader has not taken by then is lost to it.
    void stop();
    bool isListening() const { return m_listening; }
    QString errorString() const { return m_error; }

    /// As given, values outside their ranges brought inside.
    const RecorderSettings& settings() const;
    /// Identity with the recorder's address, as discovery tells it.
    HydDeviceId deviceId() const;
    /// Port of a stream type (1, 2, 3 or 5); 0 while it isn't open.
    quint16 streamPort(HydStreamType type) const;
    /// Path to open as a serial port; empty without a serial line, and once a fault has pulled its cable.
    /// Each start() makes another.
    QString serialPortName() const;
    /// One line for each open port, to print.
    QStringList listeningTexts() const;

    const HydJobSettings& jobSettings() const;
    /// Device time in seconds since the epoch.
    int64_t deviceTime() const;
    RecorderCounters counters() const;
    /// Triggers that were set, by their numbers.
    std::vector<std::shared_ptr<HydTrigger>> triggers() const;
    /// The latest 4096 control messages, the oldest first.
    std::vector<CommandArrival> commandArrivals() const;

    /// Replaces the faults; occasions are counted anew.
    void setFaults(const FaultPlan& plan);
    /// Rollover byte of the status from the next event header on.
    void setRollover(uint8_t value);
    /// Sends a notification on each running binary stream; codes other than 2 and 4 end the stream.
    void notify(uint16_t code, const QString& text = {});
    /// Restarts as after a power failure: connections drop, triggers are gone, the sample number starts over.
    void restart();

Q_SIGNALS:
    /// A control message with this letter was read; its reply is not sent yet.
    void commandReceived(char letter);
    /// A discovery datagram was answered. This and what follows comes a turn of the event loop later.
    void enquiryAnswered();
    void streamStarted(HydStreamType type);
    void streamStopped(HydStreamType type);

private:
    bool startServices();

    RecorderState* m_state;
    std::unique_ptr<ControlService> m_control;
    std::unique_ptr<DiscoveryService> m_discovery;
    std::unique_ptr<SerialService> m_serial;
    std::map<HydStreamType, std::unique_ptr<StreamService>> m_streams;
    QString m_error;
    bool m_listening = false;
};
