#pragma once

#include <chrono>
#include <optional>

/// Notices that a started station has been off the air for too long, so that one lost response does not keep
/// it silent until somebody restarts it. Ticked once a loop by the event task.
class AdvertisingWatchdog
{
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kSilenceLimit{10};
    /// How often the link is looked at: a look takes the API lock, which the event loop must not do each
    /// time.
    static constexpr std::chrono::seconds kLookPeriod{1};

    /// @param isSilent asked at most once a look period: true when the stack is started and neither
    ///                 advertising nor connected
    /// @return true when the station has been silent for the limit; the count then starts again
    template <class IsSilent>
    [[nodiscard]] bool tick(Clock::time_point now, IsSilent isSilent)
    {
        if (m_nextLook && now < *m_nextLook)
            return false;
        m_nextLook = now + kLookPeriod;
        return note(now, isSilent());
    }

private:
    bool note(Clock::time_point now, bool silent);

    std::optional<Clock::time_point> m_nextLook;
    std::optional<Clock::time_point> m_silentSince;
};
