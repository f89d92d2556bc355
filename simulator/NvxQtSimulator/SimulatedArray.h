#pragma once

#include "NvxQtCommon/contract/job/HydJobSettings.h"
#include "NvxQtSimulator/ArraySettings.h"

#include <QByteArray>
#include <QObject>
#include <QStringList>

#include <memory>
#include <vector>

class ArrayFrameService;
class ArrayFtpService;
class ArrayHttpService;
class ArrayState;

/// One array controller without hardware, on an IP address of its own: a web server with three CGI scripts
/// (TCP port 80), an FTP server with the configuration file (port 21) and a web socket that pushes the
/// spectra of all channels (port 51675). It lives on the thread that calls start(), which needs an event
/// loop, and all functions belong to that thread; a client that blocks needs another one. Make it without a
/// parent to move it to a thread of its own before it starts.
///
/// A job setup that is written by HTTP changes the configuration file, and a file that is written by FTP the
/// job setup. Frames follow its reference level and accumulations from then on.
///
/// Its faults (ArraySettings::faults) and their occasions:
/// - on http, at each request: Silence (never answered), Status (a body of "no"), Empty, Malformed,
///   ForeignSerial, Slow, Close and Reset (within the reply; value: bytes sent before, 0 for half); at each
///   connection: Refuse;
/// - on ftp, at each command: Silence, Slow; at each transfer: Status; at each download: Empty, Malformed,
///   Close (of both connections; value: bytes sent before, 0 for half); at each connection: Refuse;
/// - on frames, at each frame: Silence (value: milliseconds, 0 for ever), Loss, Duplicate, ForeignSerial,
///   FrameLength, BandWidth, Close (of all web sockets, with code 1000), Reset; in each round, which has one
///   frame of every channel: MissingChannel; at each connection: Status (the handshake is refused), Refuse.
///
/// A slot on any of its signals may stop, start again or delete it.
class SimulatedArray : public QObject
{
    Q_OBJECT

public:
    explicit SimulatedArray(const ArraySettings& settings, QObject* parent = nullptr);
    ~SimulatedArray() override;

    /// Listens on the ports of all roles. False when one isn't to be had: errorString() names it, and nothing
    /// stays open. An array controller that listens already stays as it is.
    bool start();
    /// Closes all ports and connections.
    void stop();
    bool isListening() const { return m_listening; }
    QString errorString() const { return m_error; }

    /// As given, values outside their ranges brought inside.
    const ArraySettings& settings() const;
    // 0 while the port isn't open.
    quint16 httpPort() const;
    quint16 ftpPort() const;
    quint16 framePort() const;
    /// One line for each open port, to print.
    QStringList listeningTexts() const;

    const HydJobSettings& jobSettings() const;
    /// Controller time in seconds since the epoch.
    int64_t deviceTime() const;
    const QByteArray& configFile() const;
    /// Any bytes, at most 32 MiB: false, and nothing changes, for more.
    bool setConfigFile(const QByteArray& file);
    ArrayCounters counters() const;
    /// The latest 4096 targets of HTTP requests, byte for byte, the oldest first.
    std::vector<QByteArray> targets() const;

    /// Replaces the faults; occasions are counted anew.
    void setFaults(const FaultPlan& plan);

Q_SIGNALS:
    // All of these come a turn of the event loop later.

    /// An HTTP request with this target was read.
    void requestReceived(const QByteArray& target);
    void configFileRead();
    void configFileWritten();
    void frameClientOpened();
    void frameClientClosed();

private:
    template <class Service> bool startService(std::unique_ptr<Service>& service, ArrayRole role);

    ArrayState* m_state;
    std::unique_ptr<ArrayHttpService> m_http;
    std::unique_ptr<ArrayFtpService> m_ftp;
    std::unique_ptr<ArrayFrameService> m_frames;
    QString m_error;
    bool m_listening = false;
};
