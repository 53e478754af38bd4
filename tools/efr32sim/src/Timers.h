#pragma once

#include "efr32sim/Types.h"

#include <functional>
#include <map>
#include <optional>

namespace efr32sim {
/// Functions that run later. Not thread-safe: belongs to the chip's state.
class Timers
{
public:
    void at(Clock::time_point when, std::function<void()> action)
    {
        m_actions.emplace(when, std::move(action));
    }
    void clear() { m_actions.clear(); }
    [[nodiscard]] std::optional<Clock::time_point> next() const
    {
        return m_actions.empty() ? std::nullopt : std::optional(m_actions.begin()->first);
    }
    /// Runs what is due. An action may add timers and clear them all.
    void run(Clock::time_point now)
    {
        while (!m_actions.empty() && m_actions.begin()->first <= now) {
            const auto action = m_actions.extract(m_actions.begin());
            action.mapped()();
        }
    }

private:
    std::multimap<Clock::time_point, std::function<void()>> m_actions;
};
}  // namespace efr32sim
