#include "NvxQtCommon/discovery/ProbeGate.h"

bool ProbeGate::enter()
{
    const std::lock_guard lock(m_mutex);
    if (m_isClosed)
        return false;
    ++m_inside;
    return true;
}

void ProbeGate::leave()
{
    const std::lock_guard lock(m_mutex);
    --m_inside;
    m_left.notify_all();
}

void ProbeGate::close()
{
    std::unique_lock lock(m_mutex);
    m_isClosed = true;
    m_left.wait(lock, [this] { return m_inside == 0; });
}
