#pragma once

#include <chrono>
#include <optional>

/// Tells the event task when the station's link needs care: what the serial line destroys, a response or an
/// event, must not keep a station off the air that nobody visits. Ticked once a loop by the event task.
class LinkWatchdog
{
public:
    using Clock = std::chrono::steady_clock;

    /// What the stack believes of its link; Stopped while nothing may be done about it, Booting until the
    /// chip has told or shown that it runs.
    enum class Link { Stopped, Booting, OffAir, Advertising, Connected };
    enum class Alarm {
        None,
        Advertise,  ///< off the air for a period
        Check,      ///< for a period nothing has told whether the belief is true; Booting: for a tenth of one
        Refresh,    ///< as Check, and for so long that a restart of the chip may have been missed
    };

    static constexpr std::chrono::seconds kPeriod{10};
    /// Periods of advertising after which it is set up anew.
    static constexpr int kRefreshPeriods = 6;
    /// How often the link is looked at.
    static constexpr int kLooksPerPeriod = 20;
    /// What is urgent, again() and Booting, is due after this part of a period.
    static constexpr int kUrgentPart = 10;

    explicit LinkWatchdog(Clock::duration period = kPeriod) : m_period(period) {}

    /// @param look asked at most kLooksPerPeriod times a period for the Link
    /// @return one alarm for each period that the link stays as it is, and those of again()
    template <class Look>
    [[nodiscard]] Alarm tick(Clock::time_point now, Look look)
    {
        if (m_nextLook && now < *m_nextLook)
            return Alarm::None;
        m_nextLook = now + m_period / kLooksPerPeriod;
        return note(now, look());
    }

    /// An event has come. A connection from which events come needs no check; advertising needs it all the
    /// more, because they may be those of a phone whose beginning was lost.
    void eventCame(Clock::time_point now);
    /// Advertising has been set up anew; without it Refresh is repeated in the place of every Check.
    void refreshed() { m_periods = 0; }
    /// What the alarm asked for is to be tried again soon, whatever the link is then. Only once:
    /// what fails again waits for the period, because a refresh takes the station off the air.
    void again() { m_again = !m_isRepetition; }
    /// Whether the last alarm was one of again().
    [[nodiscard]] bool isRepetition() const { return m_isRepetition; }

private:
    Alarm note(Clock::time_point now, Link link);

    const Clock::duration m_period;
    std::optional<Clock::time_point> m_nextLook;
    Link m_link = Link::Stopped;
    Clock::time_point m_since;  // when m_link, or its current period, began
    int m_periods = 0;          // of m_link since it began or was refreshed
    bool m_again = false;
    bool m_isRepetition = false;
};
