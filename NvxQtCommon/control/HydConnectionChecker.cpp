#include "NvxQtCommon/control/HydConnectionChecker.h"

#include <QHostAddress>
#include <QNetworkProxy>
#include <QPointer>
#include <QTcpSocket>
#include <QTimer>
#include <QUdpSocket>

#include <algorithm>

namespace {

QAbstractSocket* newCheckSocket(HydDeviceType type)
{
    QAbstractSocket* socket = nullptr;
    if (type == DevTypeZcr)
        socket = new QUdpSocket;
    else
        socket = new QTcpSocket;
    // What a proxy says isn't said by the device, and many a proxy takes no datagrams.
    socket->setProxy(QNetworkProxy::NoProxy);
    return socket;
}

} // namespace

HydConnectionChecker::HydConnectionChecker(QObject* parent) : QObject(parent)
{
    registerNvxMetaTypes();
}

void HydConnectionChecker::checkPort(const HydDevice& device, HydPort port)
{
    const uint32_t number = device.netHostInfo().ipAddress().toInt();
    const QHostAddress address(number);
    if (number == 0 || address.isNull()) {
        report(device, port, HostNoAddress, PortUnavailable);
        return;
    }

    // Guarded: which of the two goes first depends on the host, and slots may run event loops.
    const QPointer<QAbstractSocket> socket = newCheckSocket(device.devType());
    const QPointer<QTimer> timer = new QTimer;
    timer->setSingleShot(true);
    timer->setInterval(std::max(m_connectionTimeout, 0));
    connect(this, &QObject::destroyed, socket, &QObject::deleteLater);
    connect(this, &QObject::destroyed, timer, &QObject::deleteLater);

    const auto succeed = [this, device, port, socket, timer] {
        socket->deleteLater();
        if (timer) {
            timer->stop();
            timer->deleteLater();
        }
        report(device, port, HostReachable, PortReachable);
    };
    // Intended: the timer goes on, so that a refused connection is reported twice.
    const auto fail = [this, device, port, socket] {
        socket->deleteLater();
        report(device, port, HostUnreachable, PortUnavailable);
    };
    // Intended: the socket stays, so that what comes late is reported too.
    const auto giveUp = [this, device, port, timer] {
        timer->deleteLater();
        report(device, port, HostUnreachable, PortUnavailable);
    };

    socket->connectToHost(address, port, QIODevice::ReadWrite);
    connect(socket, &QAbstractSocket::connected, this, succeed);
    connect(socket, &QAbstractSocket::errorOccurred, this, fail);
    connect(timer, &QTimer::timeout, this, giveUp);
    timer->start();
    // What was decided inside connectToHost() is reported behind it: a slot that runs an event loop there
    // would have the socket deleted under its own call.
    if (socket->state() == QAbstractSocket::ConnectedState)
        succeed();
    else if (socket->state() == QAbstractSocket::UnconnectedState)
        fail();
}

void HydConnectionChecker::report(const HydDevice& device, HydPort port, HydNetworkStatus host,
                                  HydPortConnStatus status)
{
    const QPointer<HydConnectionChecker> self(this);
    Q_EMIT netHostStatus(device, port, host);
    if (self)
        Q_EMIT portStatus(device, port, status);
}
