#pragma once

#include "semaphore/NamedSemaphore.h"

/// A counter of events to wait for, 0 at first. Any thread.
class SemPosix : public NamedSemaphore
{
public:
    /// @param name borrowed: it must outlive the semaphore. The process ends with status 0 when creation
    /// fails.
    explicit SemPosix(const char* name = "---");

    /// Blocks without limit until an event comes, and takes it.
    void Wait();
    /// Takes an event or gives up at @p deadline, an absolute CLOCK_REALTIME time.
    /// @return 0 when taken, else an errno: ETIMEDOUT, EINVAL (nanoseconds outside 0 to 999,999,999), EINTR
    int Wait(timespec deadline);
    /// Adds an event.
    void Post();
    /// Events that wait to be taken.
    int Getvalue();
    /// Replaces the borrowed name.
    void SetSemaphoreName(const char* name);
};
