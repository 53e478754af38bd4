#pragma once

#include "LinkI.h"

#include <chrono>
#include <optional>

/// Keeps the station on the air: what the serial line destroys, a response or an event, must not keep a
/// station off it that nobody visits. The event task alone.
class LinkWatch
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::seconds kPeriod{10};

    explicit LinkWatch(Clock::duration period = kPeriod) : m_period(period) {}

    /// Called once a loop. Looks at the link now and then and acts once for each period that it stays as it
    /// is: off the air it is advertised, else checked, and after a minute of advertising, when a restart of
    /// the chip may have been missed, refreshed. Sooner while the chip boots, and what is in doubt or has
    /// failed is tried again soon, but only once: a refresh takes the station off the air.
    /// @param link null while nothing may be done about it
    /// @param eventCame an event has come since the call before. A connection from which events come needs no
    ///                  check; advertising needs it all the more, because they may be those of a phone whose
    ///                  beginning was lost.
    void tick(Clock::time_point now, LinkI* link, bool eventCame);

private:
    void enter(Clock::time_point now, LinkI::State state);
    [[nodiscard]] Clock::duration patience() const;
    void care(LinkI& link);
    void advertise(LinkI& link) const;
    void check(LinkI& link);
    void refresh(LinkI& link);

    const Clock::duration m_period;
    std::optional<Clock::time_point> m_nextLook;
    LinkI::State m_state = LinkI::State::Stopped;
    Clock::time_point m_since;    // when m_state, or its current period, began
    int m_periods = 0;            // of m_state since it began or was refreshed
    bool m_again = false;         // what was done last is to be tried again soon, whatever the link is then
    bool m_isRepetition = false;  // so it has been
};
