#include "NvxQtCommon/discovery/CTcpSocProc.h"
#include "NvxQtCommon/discovery/CTcpSocThread.h"
#include "NvxQtCommon/discovery/HydMarcoAdapter.h"
#include "NvxQtCommon/discovery/ProbeGate.h"

#include <QDebug>
#include <QPointer>

#include <utility>

// Discovery by TCP probes.

namespace {

constexpr unsigned kProbeTimeWait = 1000;
constexpr uint8_t kProbeLetter = 'E';

} // namespace

void HydMarcoAdapter::netEnquireTCPIPAddr(const QHostAddress& address, bool bClear, bool threaded)
{
    if (threaded) {
        probeOnThread(address, CTcpSocThread::roomForProbes() > 0);
        return;
    }
    if (bClear)
        m_tcpSockets.clear();
    probeHere(address);
}

void HydMarcoAdapter::probeHere(const QHostAddress& address)
{
    const auto socket = CTcpSocProc::make(this, address, kProbeTimeWait, kProbeLetter);
    // Ahead of the connecting, which can fail at once, and may then have slots that drop the socket again.
    m_tcpSockets.append(socket);
    setConnectionTCPIP(socket, true);
    if (socket->connectIPAddr(address, kProbeTimeWait, kProbeLetter, false)) {
        qDebug().nospace().noquote() << "TcpSocket got: "
                                     << "peer: " << socket->peerAddress().toString()
                                     << ", local: " << socket->localAddress().toString();
    }
}

void HydMarcoAdapter::probeOnThread(const QHostAddress& address, bool hasRoom)
{
    if (!hasRoom) {
        qDebug().noquote() << "HydMarcoAdapter: too few descriptors are left for a probe of"
                           << address.toString();
        errorHandle(QAbstractSocket::SocketResourceError, address);
        return;
    }
    auto* thread = new CTcpSocThread(nullptr, address, m_timeWait, kProbeLetter);
    connect(thread, &QThread::finished, thread, &QObject::deleteLater, Qt::DirectConnection);
    connect(
        thread, &QThread::started, thread,
        [thread, gate = m_gate] {
            thread->createSocket();
            const bool isHeard = gate->pass([thread](const HydMarcoAdapter& adapter) {
                adapter.setConnectionTCPIP(thread->tcpSocProc(), true);
            });
            if (isHeard)
                thread->connectIP();
            else
                thread->exit(0);
        },
        Qt::DirectConnection);
    thread->start();
    if (thread->isRunning() || thread->isFinished())
        return;
    delete thread;
    qDebug().noquote() << "HydMarcoAdapter: no thread for a probe of" << address.toString();
    errorHandle(QAbstractSocket::SocketResourceError, address);
}

void HydMarcoAdapter::scanNetWork(const QString& prefix, unsigned timeWait)
{
    const QPointer<HydMarcoAdapter> self(this);
    m_tcpSockets.clear();
    const unsigned savedTimeWait = std::exchange(m_timeWait, timeWait);
    size_t room = CTcpSocThread::roomForProbes();
    for (int i = 0; i < kScannedAddresses; ++i) {
        Q_EMIT scanNetWorkStep((i + 1) / double{kScannedAddresses});
        if (!self)
            return;
        probeOnThread(QHostAddress(prefix + QString::number(i)), room > 0);
        if (!self)
            return;
        room -= room > 0;
    }
    m_timeWait = savedTimeWait;
}

void HydMarcoAdapter::setConnectionTCPIP(const std::shared_ptr<CTcpSocProc>& socket, bool bDirect) const
{
    if (!socket)
        return;
    const auto found = m_tcpRegime ? &HydMarcoAdapter::deviceFoundIP : &HydMarcoAdapter::deviceFound;
    if (!bDirect || socket->thread() == thread()) {
        const auto type = bDirect ? Qt::DirectConnection : Qt::AutoConnection;
        connect(socket.get(), &CTcpSocProc::deviceFound, this, found, type);
        connect(socket.get(), &CTcpSocProc::signalSocketError, this, &HydMarcoAdapter::errorHandle, type);
        return;
    }
    connect(
        socket.get(), &CTcpSocProc::deviceFound, socket.get(),
        [gate = m_gate, found](const std::shared_ptr<HydDevice>& device) {
            gate->pass([&](HydMarcoAdapter& adapter) { Q_EMIT(adapter.*found)(device); });
        },
        Qt::DirectConnection);
    connect(
        socket.get(), &CTcpSocProc::signalSocketError, socket.get(),
        [gate = m_gate](QAbstractSocket::SocketError socketError, const QHostAddress& address) {
            gate->pass([&](HydMarcoAdapter& adapter) { adapter.errorHandle(socketError, address); });
        },
        Qt::DirectConnection);
}
