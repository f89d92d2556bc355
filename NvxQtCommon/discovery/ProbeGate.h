#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <condition_variable>
#include <mutex>

class HydMarcoAdapter;

/// Stands between an adapter and the probes that report to it from threads of their own: once it is closed,
/// nobody reaches the adapter any more. Shared by the adapter and its probes; for any thread.
class NVXQTCOMMON_EXPORT ProbeGate
{
public:
    explicit ProbeGate(HydMarcoAdapter* adapter) : m_adapter(adapter) {}

    /// Calls `report` with the adapter, which stays for as long as that takes; false, and no call, when
    /// closed.
    template <class Report> bool pass(Report report)
    {
        if (!enter())
            return false;
        report(*m_adapter);
        leave();
        return true;
    }
    /// Lets nobody in from now on and waits for those inside: never called by one of them.
    void close();

private:
    bool enter();
    void leave();

    HydMarcoAdapter* m_adapter;
    std::mutex m_mutex;
    std::condition_variable m_left;
    int m_inside = 0;
    bool m_isClosed = false;
};
