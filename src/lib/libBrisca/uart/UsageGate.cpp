#include "UsageGate.h"

void UsageGate::enter()
{
    const std::lock_guard lock(m_mutex);
    ++m_users;
}

void UsageGate::leave()
{
    const std::lock_guard lock(m_mutex);
    if (--m_users == 0)
        m_idle.notify_all();
}

bool UsageGate::waitUntilIdle(std::chrono::milliseconds limit)
{
    std::unique_lock lock(m_mutex);
    return m_idle.wait_for(lock, limit, [this] { return m_users == 0; });
}
