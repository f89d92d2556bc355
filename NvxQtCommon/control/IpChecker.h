#pragma once

#include "NvxQtCommon/control/MetaTypes.h"

#include <QFutureWatcher>
#include <QObject>

/// Looks whether an address is in use before a device is given it: one ping on the global thread pool. The
/// application owns it, and may delete it at any time; it emits on its own thread.
class NVXQTCOMMON_EXPORT IpChecker : public QObject
{
    Q_OBJECT

public:
    /// Milliseconds that a host has to answer.
    static constexpr unsigned kTimeoutMs = 50;

    /// Keeps copies: the device that is to get the address, and the network record that holds the address.
    IpChecker(const HydDevice& device, const NvxNetHostInfo& info);

    /// Starts the check; its result is `ipCheckResult`. Meant to be called once: each call more makes every
    /// later result come once more, and drops the result of a check that still runs.
    void checkIpExistence();

Q_SIGNALS:
    /// PingOk: somebody has the address. PingFailed: nobody answered in time, or no ping could be sent.
    void ipCheckResult(NvxPingResult result, const HydDevice& device, const NvxNetHostInfo& info);

private:
    const HydDevice m_device;
    const NvxNetHostInfo m_info;
    QFutureWatcher<NvxPingResult> m_watcher;
};
