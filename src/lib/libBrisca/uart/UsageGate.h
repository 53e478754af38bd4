#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/// Counts the calls that are inside something, so that its owner can wait until all have left.
class UsageGate
{
public:
    void enter();
    void leave();
    /// Waits until nobody is inside; false when @p limit passed first.
    [[nodiscard]] bool waitUntilIdle(std::chrono::milliseconds limit);

private:
    std::mutex m_mutex;
    std::condition_variable m_idle;
    unsigned m_users = 0;
};
