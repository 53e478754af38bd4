#pragma once

#include "semaphore/MutexPosix.h"
#include "semaphore/SemPosix.h"

#include <cstdint>

/// A set of 32 event bits that one task waits for and any thread may add to.
class SignalHandler
{
public:
    /// @param name borrowed: it must outlive the handler
    explicit SignalHandler(const char* name);

    /// Adds bits to the pending ones and wakes the waiter. Any thread.
    void SendSignal(std::uint32_t bits);

    /// Waits until any bit of @p mask is pending. Bits outside the mask stay pending meanwhile.
    /// @param timeoutMs 0 waits without limit; otherwise at most this many milliseconds, see deadlineIn()
    /// @return the whole pending set, which is then cleared; 0 after a time-out, which clears it, too
    std::uint32_t WaitForSignal(std::uint32_t mask, int timeoutMs);

    /// Logs name and pending bits at TRACE.
    void PrintSignalState();
    /// Replaces the borrowed name of the handler and of its semaphore.
    void SetSignalHandlerName(const char* name);

private:
    [[nodiscard]] std::uint32_t pending();
    std::uint32_t takePending();

    const char* m_name;
    std::uint32_t m_pending = 0;  // guarded by m_mutex
    SemPosix m_semaphore;
    MutexPosix m_mutex;
};
