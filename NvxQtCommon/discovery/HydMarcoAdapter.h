#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"
#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/message/HydMarcoProcessor.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QAbstractSocket>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QString>
#include <atomic>
#include <list>
#include <memory>
#include <vector>

class CTcpSocProc;
class CUdpSocProc;
class ProbeGate;
class QNetworkInterface;
class QUdpSocket;

/// UDP port of every device for discovery datagrams.
inline constexpr uint16_t MARCO_PORT = PortMarco;

/// Finds recorders on the network and changes their network settings, by discovery datagrams, and by TCP
/// probes where those don't reach. The application owns it; it and its sockets live on the thread that
/// created it. There is no scan state: each call sends, answers come as signals whenever they arrive, and
/// each broadcast socket ends with one timeout(). At most 256 datagrams of a socket are read in one turn of
/// the event loop, the others in the next ones. Slots may run an event loop of their own; one that wants to
/// get rid of the adapter uses deleteLater().
///
/// A probe on a thread of its own emits deviceFound(), deviceFoundIP() and signalSocketError() on that
/// thread: a receiver on another one gets them through its event loop (connect() sees to that), and a slot
/// that is connected directly, or has no receiver, runs on the probe's thread. Such a slot must not delete
/// the adapter and not wait for its thread: the adapter's destructor waits until it is over. Probes that
/// outlive the adapter end in silence; only when the application is about to quit they are ended and waited
/// for.
class NVXQTCOMMON_EXPORT HydMarcoAdapter : public QObject
{
    Q_OBJECT

public:
    HydMarcoAdapter();
    ~HydMarcoAdapter() override;

    /// Milliseconds, 5000 at first: the interval of a broadcast socket whose timer doesn't run when the
    /// datagram is about to be sent. Its constructor starts that timer, so a socket usually lives its own 10
    /// s.
    int getTimeoutPeriod() const { return m_timeoutPeriod; }
    void setTimeoutPeriod(int milliseconds) { m_timeoutPeriod = milliseconds; }
    /// Milliseconds, 1000 at first; handed to the probes that open a TCP connection.
    unsigned timeWait() const { return m_timeWait; }
    void setTimeWait(unsigned milliseconds) { m_timeWait = milliseconds; }
    /// True: probes by TCP report by deviceFoundIP() instead of deviceFound(). False at first.
    bool tcpRegime() const { return m_tcpRegime; }
    void setTcpRegime(bool tcpRegime) { m_tcpRegime = tcpRegime; }

    /// Broadcasts an enquiry for one device, with its network record.
    void netEnquire(const HydDevice& device) const;
    /// Broadcasts an enquiry; type 0 and serial number 0 ask for any.
    void netEnquire(HydDeviceType type, uint16_t serial) const;
    /// Broadcasts new network settings for one device; the answer is deviceChanged() or error().
    void changeNetSettings(uint16_t serial, HydDeviceType type, const NvxNetHostInfo& info) const;
    /// Broadcasts the restart of the device of that address; the answer is deviceReset().
    void resetDevice(const NvxMacAddr& mac) const;
    /// Sends `payload` from a new socket on each local IPv4 address (getUdpSockets()) to the broadcast
    /// address and stamps each socket's port into it. A null payload, and one that serialises to nothing,
    /// sends nothing. A datagram that can't be sent is a line of the log.
    void bcastCommand(std::shared_ptr<HydMarcoCommandPayload> payload) const;
    /// New sockets, one bound to each IPv4 address of each interface that is up, running and no loopback.
    /// They are children of the adapter and delete themselves.
    QList<CUdpSocProc*> getUdpSockets() const;

    /// Sends an enquiry for any device to one address; both flags are ignored. An enquiry that still waits
    /// for its answer is given up. The sixth enquiry in a row without a datagram from anybody raises error().
    void netEnquireUDPIPAddr(const QHostAddress& address, bool, bool);

    /// Number of addresses of a subnet scan.
    static constexpr int kScannedAddresses = 256;

    /// Probes one address by TCP. Without `threaded` the probe lives here, among those that the adapter keeps
    /// until they are dropped: `bClear` drops, and so closes, all earlier ones, of which nothing more is
    /// heard. With it the probe gets a thread of its own and `bClear` is ignored; one for which the process
    /// has too few files and sockets left, or no thread, is not made: signalSocketError() says so at once
    /// with SocketResourceError. No probe is tried again, and one whose peer says nothing never ends.
    void netEnquireTCPIPAddr(const QHostAddress& address, bool bClear, bool threaded);
    /// Probes `prefix` followed by each number from 0 to 255, so the prefix ends with its last point; each
    /// probe on a thread of its own, all at once, and nothing waits for them. Drops the probes that the
    /// adapter keeps. `timeWait` is handed to the probes and has no effect: intended. A prefix that makes no
    /// address gives socket errors. For how many probes files and sockets suffice is asked once, at the
    /// start: slots of scanNetWorkStep(), and other threads, leave them alone meanwhile, and start no other
    /// scan.
    void scanNetWork(const QString& prefix, unsigned timeWait);
    /// Lets what the socket finds come out by deviceFoundIP() or deviceFound(), as tcpRegime() says now, and
    /// its errors by signalSocketError(); `bDirect` on the socket's thread. From any thread while the adapter
    /// is there. A null socket does nothing.
    void setConnectionTCPIP(const std::shared_ptr<CTcpSocProc>& socket, bool bDirect) const;

public Q_SLOTS:
    /// Turns a received message into deviceFound(), deviceChanged(), deviceReset() or error().
    /// `ifaceAddr` is the local interface's IPv4 address, 0 for none. A message without payload does nothing.
    void handleMarcoMsg(std::shared_ptr<HydMarcoCommand> msg, uint32_t ifaceAddr);
    /// Logs a socket's error and passes it on by signalSocketError().
    void errorHandle(QAbstractSocket::SocketError socketError, QHostAddress hAddress);

Q_SIGNALS:
    /// `ifaceAddr` is the last IPv4 address of the interface that the datagram came by, 0 where it isn't
    /// known (answers to an enquiry to one address).
    void messageReceived(std::shared_ptr<HydMarcoCommand> msg, uint32_t ifaceAddr = 0);
    void deviceFound(std::shared_ptr<HydDevice> dev);
    void deviceFoundIP(std::shared_ptr<HydDevice> dev);
    void deviceChanged(std::shared_ptr<HydDevice> dev);
    void deviceReset(NvxMacAddr mac);
    void error(const QString& errStr);
    void signalSocketError(QAbstractSocket::SocketError socketError, QHostAddress hAddress);
    /// A broadcast socket stopped listening; once for each socket.
    void timeout();
    /// Emitted nowhere in this library.
    void timeoutIP();
    /// Progress of scanNetWork() in starting its probes, above 0 to 1: comes ahead of each.
    void scanNetWorkStep(double step);

private Q_SLOTS:
    void netEnqUDPConnected();
    void readUdpSocket();

private:
    void parseReceived(std::vector<std::shared_ptr<HydMarcoCommand>>& messages);
    void probeHere(const QHostAddress& address);
    void probeOnThread(const QHostAddress& address, bool hasRoom);

    HydMarcoProcessor m_processor;
    CircularByteBuffer m_received;
    int m_timeoutPeriod = 5000;
    QList<std::shared_ptr<CTcpSocProc>> m_tcpSockets;
    std::shared_ptr<ProbeGate> m_gate;
    std::shared_ptr<QUdpSocket> m_unicastSocket;
    QHostAddress m_enquiredAddress;
    unsigned m_timeWait = 1000;
    /// Probes on threads of their own look at it when they start.
    std::atomic<bool> m_tcpRegime{false};
    /// One address for each unicast enquiry sent since the last datagram arrived.
    std::list<QHostAddress> m_unanswered;
};
