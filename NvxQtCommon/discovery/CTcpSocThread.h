#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QAbstractSocket>
#include <QHostAddress>
#include <QThread>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

class CTcpSocProc;

/// One probe (CTcpSocProc) on a thread of its own: its socket is made, used and released there. The thread
/// ends with its connection or with its error, and not before: a peer that says nothing keeps it. What still
/// runs when the application is about to quit is ended and waited for then; meanwhile whoever makes or
/// deletes a probe, or asks roomForProbes(), waits too, so no slot that runs on a probe's thread may. The
/// object lives on the thread that created it; its signals come on the probe's thread.
class NVXQTCOMMON_EXPORT CTcpSocThread : public QThread
{
    Q_OBJECT

public:
    /// Files and sockets that a running probe takes: its event loop's and its connection's.
    static constexpr size_t kDescriptors = 2;
    /// Files and sockets that probes leave to the rest of the process.
    static constexpr size_t kSpareDescriptors = 32;

    /// How many probes may be started now, so that none meets the process's limit of open files and sockets:
    /// an event loop that can't open its own ends the process. Nothing is kept free for who asks: what others
    /// open meanwhile is gone.
    static size_t roomForProbes();

    /// The values are those of the socket.
    CTcpSocThread(QObject* parent, QHostAddress, unsigned timeWait, uint8_t cmd);
    /// Ends the event loop and waits for the thread without limit.
    ~CTcpSocThread() override;

    /// Empty until createSocket(), and again when the event loop has ended. From any thread; what it points
    /// to is for the probe's.
    std::shared_ptr<CTcpSocProc> tcpSocProc() const;

    /// Makes the socket, without a parent, on the thread that calls.
    void createSocket();
    /// Starts the probe. Nothing without a socket; for the socket's thread.
    void connectIP();
    /// Closes the socket and ends the event loop; for the socket's thread.
    void disconnected();

public Q_SLOTS:
    /// Reports a socket's error by signalError(), closes the socket and ends the event loop; for the socket's
    /// thread.
    void errorHandle(QAbstractSocket::SocketError socketError);

Q_SIGNALS:
    /// Emitted nowhere in this library: the socket's own signal is what reports.
    void deviceFound(std::shared_ptr<HydDevice> device);
    void signalError(QAbstractSocket::SocketError socketerror, QHostAddress hAddress);

protected:
    void run() override;

private:
    void closeSocket();

    mutable std::mutex m_mutex;
    std::shared_ptr<CTcpSocProc> m_socket;
    const QHostAddress m_hostAddress;
    const unsigned m_timeWait;
    const uint8_t m_cmd;
    /// What it takes of the process's descriptors is open.
    std::atomic<bool> m_holdsDescriptors{false};
};
