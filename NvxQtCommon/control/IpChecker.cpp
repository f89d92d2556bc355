#include "NvxQtCommon/control/IpChecker.h"

#include "NvxQtCommon/control/NvxPingHelper.h"

#include <QDebug>
#include <QtConcurrentRun>

IpChecker::IpChecker(const HydDevice& device, const NvxNetHostInfo& info) : m_device(device), m_info(info)
{
    registerNvxMetaTypes();
}

void IpChecker::checkIpExistence()
{
    // Intended: each call connects anew. The copies outlive a checker that a slot deletes.
    connect(&m_watcher, &QFutureWatcherBase::finished, this, [this, device = m_device, info = m_info] {
        const NvxPingResult result = m_watcher.result();
        qDebug().nospace() << "Ping result: " << result;
        Q_EMIT ipCheckResult(result, device, info);
    });
    m_watcher.setFuture(QtConcurrent::run(&NvxPingHelper::pingHost, m_info.ipAddress(), kTimeoutMs));
}
