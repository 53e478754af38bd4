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
        m_periods = 0;
        if (!m_again)
            m_since = now;
    }
    const bool isUrgent = m_again || link == Link::Booting;
    if (now - m_since < (isUrgent ? m_period / kUrgentPart : m_period))
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
        case Link::Booting:
        case Link::Connected:
            return Alarm::Check;
    }
    return Alarm::None;
}
