#include "FairMutex.h"

void FairMutex::lock()
{
    std::unique_lock lock(m_mutex);
    const auto self = std::this_thread::get_id();
    if (m_owner != self) {
        const unsigned ticket = m_nextTicket++;
        m_turn.wait(lock, [&] { return m_served == ticket; });
        m_owner = self;
    }
    ++m_depth;
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
