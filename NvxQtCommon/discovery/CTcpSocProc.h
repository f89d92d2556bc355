#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QHostAddress>
#include <QTcpSocket>

#include <cstdint>
#include <memory>

class HydControlMessage;

/// One probe of one address: opens the control port, sends one command letter, reads once, makes device
/// records of what came and closes; always without a proxy. Nothing is tried again, and a peer that says
/// nothing is waited for without limit. It lives on the thread that created it; all of its functions are for
/// that thread.
class NVXQTCOMMON_EXPORT CTcpSocProc : public QTcpSocket
{
    Q_OBJECT

public:
    /// Bytes of a reply that are looked at; what doesn't fit, or comes later, is never read.
    static constexpr qint64 kReadLimit = 4096;

    /// A socket whose last reference may go anywhere, also inside one of its own signals: it is closed and
    /// deaf at once, and deleted when its thread's event loop has the next turn, or ends. Its parent may
    /// still delete it earlier. On another thread a reference is let go while the socket's thread surely runs
    /// or has been waited for, and never while it ends.
    static std::shared_ptr<CTcpSocProc> make(QObject* parent, const QHostAddress& address, unsigned timeWait,
                                             uint8_t cmd);

    /// `timeWait` is kept and has no effect: intended. `cmd` is the letter of the command, `E` for an
    /// enquiry.
    CTcpSocProc(QObject* parent, QHostAddress, unsigned timeWait, uint8_t cmd);
    ~CTcpSocProc() override;

    using QTcpSocket::error;

    /// Connects to the address, and with the letter, that the socket was made with or stored last. True.
    bool connectIPAddr();
    /// Gives up what is under way and connects to `address`. Without `bStore` the three values are not kept:
    /// a connection to another address than the stored one is then closed without a command. True.
    bool connectIPAddr(const QHostAddress& address, unsigned timeWait, uint8_t cmd, bool bStore);
    /// Disconnects and closes unless the socket is unconnected, which it is from then on.
    void closePerform();

public Q_SLOTS:
    void connectedProc();
    void disconnectedProc();
    void bytesWrittenProc(long long bytes);
    /// Sends a message of that letter without a body. False when the socket isn't open, and when not all
    /// bytes were taken.
    bool writeTcpSocket(uint8_t cmd);
    /// Reads once, emits deviceFound() for each record and closes.
    void readTcpSocket();

Q_SIGNALS:
    /// The record's host address is the peer's, its interface address the one at this end.
    void deviceFound(std::shared_ptr<HydDevice> device);
    void signalSocketError(QAbstractSocket::SocketError socketError, QHostAddress hAddress);

private Q_SLOTS:
    void error(QAbstractSocket::SocketError socketError);

private:
    class Busy;

    void release();
    static std::shared_ptr<HydDevice> deviceOf(const HydControlMessage& message);

    QHostAddress m_hostAddress;
    unsigned m_port;
    unsigned m_timeWait;
    uint8_t m_cmd;
    uint8_t m_senderMark = 0;
    /// How many of its own signals with receivers outside the socket is in.
    int m_busy = 0;
    bool m_isReleased = false;
};
