#include "FairMutex.h"

bool FairMutex::lock()
{
    std::unique_lock lock(m_mutex);
    const auto self = std::this_thread::get_id();
    if (m_owner != self) {
        const unsigned ticket = m_nextTicket++;
        m_turn.wait(lock, [&] { return m_served == ticket; });
        m_owner = self;
    }
    return ++m_depth == 1;
}

void FairMutex::unlock()
{
    const std::lock_guard lock(m_mutex);
    if (--m_depth != 0)
        return;
    m_owner = {};
    ++m_served;
    m_turn.notify_all();
}

bool FairMutex::waitForThoseWhoAsked(std::chrono::milliseconds limit)
{
    std::unique_lock lock(m_mutex);
    const unsigned ticket = m_nextTicket;
    // The distance, because tickets wrap.
    return m_turn.wait_for(lock, limit, [&] { return static_cast<int>(m_served - ticket) >= 0; });
}
