#pragma once

#include <chrono>
#include <thread>

namespace testsupport {
/// Upper bound of every wait for something that is expected to happen; generous, because machines are shared.
constexpr std::chrono::seconds kPatience{30};

/// Polls until @p condition holds; false when it never did.
template <class Condition>
[[nodiscard]] bool waitUntil(Condition condition, std::chrono::milliseconds limit = kPatience)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
}  // namespace testsupport
