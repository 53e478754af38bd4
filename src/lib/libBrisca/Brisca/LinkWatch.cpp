#include "LinkWatch.h"

#include "facade/Log.h"

#include <utility>

BRISCA_LOG_NODE(logNode, "Brisca");

using enum LinkI::State;

namespace {
/// Periods of advertising after which it is set up anew.
constexpr int kRefreshPeriods = 6;
/// How often the link is looked at.
constexpr int kLooksPerPeriod = 20;
/// What is urgent, a repetition and a chip that boots, is due after this part of a period.
constexpr int kUrgentPart = 10;
}  // namespace

void LinkWatch::tick(Clock::time_point now, LinkI* link, bool eventCame)
{
    if (eventCame && m_state == Connected)
        m_since = now;
    if (m_nextLook && now < *m_nextLook)
        return;
    m_nextLook = now + m_period / kLooksPerPeriod;
    enter(now, link != nullptr ? link->look() : Stopped);
    if (now - m_since < patience())
        return;
    m_since = now;
    m_isRepetition = std::exchange(m_again, false);
    if (!m_isRepetition)
        ++m_periods;
    if (link != nullptr)
        care(*link);
}

void LinkWatch::enter(Clock::time_point now, LinkI::State state)
{
    if (state == m_state)
        return;
    m_state = state;
    m_periods = 0;
    if (!m_again)
        m_since = now;
}

LinkWatch::Clock::duration LinkWatch::patience() const
{
    return m_again || m_state == Booting ? m_period / kUrgentPart : m_period;
}

void LinkWatch::care(LinkI& link)
{
    if (m_state == OffAir)
        advertise(link);
    else if (m_state != Stopped)
        check(link);
}

void LinkWatch::advertise(LinkI& link) const
{
    if (!m_isRepetition)
        BRISCA_NOTIC(logNode, "Neither advertising nor connected for %d s, start advertising again",
                     static_cast<int>(kPeriod.count()));
    link.advertise();
}

void LinkWatch::check(LinkI& link)
{
    const tGBS_LinkCheck answer = link.check();
    if (answer == GBS_LINK_CHECK_DOUBTED)
        m_again = !m_isRepetition;
    else if (answer == GBS_LINK_CHECK_AGREES && m_state == Advertising && m_periods >= kRefreshPeriods)
        refresh(link);
}

/// The chip may have restarted without a boot event that arrived; then it has lost everything that was set.
void LinkWatch::refresh(LinkI& link)
{
    BRISCA_DEBUG(logNode, "Set up advertising anew");
    if (link.refresh())
        m_periods = 0;
    else
        m_again = !m_isRepetition;
}
