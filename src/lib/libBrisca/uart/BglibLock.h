#pragma once

#include <chrono>

/// Holds GOS semaphore 0 ("GBS_BGLIB_SEMAPHORE_ID") for one packet exchange on the line.
class BglibLock
{
public:
    BglibLock();
    ~BglibLock();
    BglibLock(const BglibLock&) = delete;
    BglibLock& operator=(const BglibLock&) = delete;

    /// Whether the exchange may go on: not after the line was let go. Asked under the lock, so that an
    /// exchange which waited for it while the line was let go does not begin.
    [[nodiscard]] bool lineUsable() const;

    /// Waits until no exchange is in progress or waiting to begin; false when @p limit passed first.
    [[nodiscard]] static bool waitUntilFree(std::chrono::milliseconds limit);
};
