#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

/// A recursive mutex that is handed over in the order of asking.
/// A task that sends command after command holds the line most of the time; with a plain mutex it takes it
/// again before a waiting event pump has woken up, and the events that nobody takes meanwhile overflow their
/// ring.
class FairMutex
{
public:
    /// @return whether the caller did not hold it before
    bool lock();
    void unlock();
    /// Waits until everyone who has asked for it before this call has had it and given it back; who asks
    /// later is not waited for. False when @p limit passed first.
    [[nodiscard]] bool waitForThoseWhoAsked(std::chrono::milliseconds limit);

private:
    std::mutex m_mutex;
    std::condition_variable m_turn;
    unsigned m_nextTicket = 0;
    unsigned m_served = 0;  // the ticket whose holder has the mutex, or may have it
    unsigned m_depth = 0;
    std::thread::id m_owner;
};
