#pragma once

#include <chrono>
#include <mutex>

/// Tells what is to be done about a chip that answers nothing any more: it is reported, and then it is reset
/// by a new entry of the firmware state, each time later than before. Any thread.
class SilenceWatch
{
public:
    using Clock = std::chrono::steady_clock;

    enum class Alarm {
        None,
        Warn,     ///< once a silence
        Reenter,  ///< once a silence
    };

    /// @param warnAfter the silence that is reported; every other time is a multiple of it
    explicit SilenceWatch(Clock::duration warnAfter) : m_warnAfter(warnAfter) {}

    /// @param silence how long the chip has answered nothing
    [[nodiscard]] Alarm tick(Clock::time_point now, Clock::duration silence);

private:
    Alarm onSilence(Clock::time_point now, Clock::duration silence);

    const Clock::duration m_warnAfter;
    std::mutex m_lock;  // guards the rest
    Clock::time_point m_lastReentry;
    std::size_t m_reentries = 0;  // since the chip last answered for longer than the longest wait
    bool m_hasWarned = false;     // of the silence that lasts
    bool m_hasReentered = false;
};
