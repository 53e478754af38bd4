#include "LinkWatchdog.h"

#include <utility>

void LinkWatchdog::eventCame(Clock::time_point now)
{
    if (m_link == Link::Connected)
        m_since = now;
}

LinkWatchdog::Alarm LinkWatchdog::note(Clock::time_point now, Link link)
{
    if (link != m_link) {
        m_link = link;
        m_since = now;
        m_periods = 0;
    }
    if (now - m_since < m_period && !m_again)
        return Alarm::None;
    m_since = now;
    m_isRepetition = std::exchange(m_again, false);
    if (!m_isRepetition)
        ++m_periods;
    switch (link) {
        case Link::Stopped:
            break;
        case Link::OffAir:
            return Alarm::Advertise;
        case Link::Advertising:
            return m_periods >= kRefreshPeriods ? Alarm::Refresh : Alarm::Check;
        case Link::Connected:
            return Alarm::Check;
    }
    return Alarm::None;
}
