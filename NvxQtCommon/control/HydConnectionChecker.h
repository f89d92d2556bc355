#pragma once

#include "NvxQtCommon/control/MetaTypes.h"

#include <QObject>

/// Looks whether a port of a device answers, without a command channel and always without a proxy. The
/// application owns it; it works on the event loop of its thread, several checks at once if wanted. A checker
/// that is deleted takes its checks along: nothing is emitted any more.
///
/// A report is a pair of signals, `netHostStatus` first. Mostly a check makes one report, but two for a port
/// that refuses: at once and at the timeout. And after a timeout the connection is still tried until the
/// system gives it up, so an answer or a refusal that comes late is a second report. So is the loss of a
/// connection that a peer resets right after it let it in, before the event loop has come to drop it.
class NVXQTCOMMON_EXPORT HydConnectionChecker : public QObject
{
    Q_OBJECT

public:
    explicit HydConnectionChecker(QObject* parent = nullptr);

    /// Milliseconds that a port has to answer; 4000 until set. A negative number counts as 0.
    int connectionTimeout() const { return m_connectionTimeout; }
    /// For checks that begin later.
    void setConnectionTimeout(const int& milliseconds) { m_connectionTimeout = milliseconds; }

    /// Begins a check of the address in the device's network record: by TCP, or by UDP for an array
    /// controller, which says only that there is a way to the host: the report then comes before this
    /// returns. So it does for a record without an address.
    void checkPort(const HydDevice& device, HydPort port);

Q_SIGNALS:
    /// Of HostReachable, HostUnreachable and HostNoAddress; the device is a copy.
    void netHostStatus(const HydDevice& device, HydPort port, HydNetworkStatus status);
    /// PortReachable or PortUnavailable.
    void portStatus(const HydDevice& device, HydPort port, HydPortConnStatus status);

private:
    void report(const HydDevice& device, HydPort port, HydNetworkStatus host, HydPortConnStatus status);

    int m_connectionTimeout = 4000;
};
