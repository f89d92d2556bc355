#pragma once

#include "NvxQtCommon/control/MetaTypes.h"

#include <QObject>

/// Asks an address by ICMP echo whether somebody answers. The application owns it; `pingHost` needs no
/// object.
class NVXQTCOMMON_EXPORT NvxPingHelper : public QObject
{
    Q_OBJECT

public:
    explicit NvxPingHelper(QObject* parent = nullptr);

    /// Sends one echo with the data "Data Buffer" and blocks for at most `timeoutMs` milliseconds. PingOk
    /// when any reply came; else PingFailed, also for address 0 and where the system permits this program no
    /// echo. What happened is one entry of the log. From any thread, also from several at once.
    static NvxPingResult pingHost(const NvxIpAddr& addr, unsigned timeoutMs);

public Q_SLOTS:
    /// Does nothing.
    void handlePingFinished() {}

Q_SIGNALS:
    /// Never emitted here.
    void pingResult(NvxPingResult rslt);
};
