#include "SilenceWatch.h"

#include <algorithm>
#include <array>

namespace {
/// Silences after which the chip is reset, in minutes, that is in twice the time of the warning. A chip that
/// falls silent again and again is left alone for longer and longer: each entry costs its application a
/// restart.
constexpr std::array kWaits = {1, 1, 2, 4, 8, 15};
constexpr int kWarningsPerMinute = 2;
}  // namespace

SilenceWatch::Alarm SilenceWatch::tick(Clock::time_point now, Clock::duration silence)
{
    const std::lock_guard lock(m_lock);
    if (silence >= m_warnAfter)
        return onSilence(now, silence);
    m_hasWarned = m_hasReentered = false;
    if (now - m_lastReentry > kWaits.back() * kWarningsPerMinute * m_warnAfter)
        m_reentries = 0;
    return Alarm::None;
}

SilenceWatch::Alarm SilenceWatch::onSilence(Clock::time_point now, Clock::duration silence)
{
    if (!m_hasWarned) {
        m_hasWarned = true;
        return Alarm::Warn;
    }
    const std::size_t row = std::min(m_reentries, kWaits.size() - 1);
    if (m_hasReentered || silence < kWaits[row] * kWarningsPerMinute * m_warnAfter)
        return Alarm::None;
    m_hasReentered = true;
    m_lastReentry = now;
    ++m_reentries;
    return Alarm::Reenter;
}
