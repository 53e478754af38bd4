#include "signalHandler/SignalHandler.h"

#include "facade/Log.h"

#include <cerrno>
#include <ctime>
#include <utility>

BRISCA_LOG_NODE(logNode, "[RTapi][SIGNAL]");

namespace {
constexpr int kMillisecondsPerSecond = 1000;
constexpr long kNanosecondsPerMillisecond = 1000000;

// The nanoseconds are not carried over into the seconds: part of the interface. When they reach 1,000,000,000
// every timed wait fails at once with EINVAL, and the waiter spins until a matching bit comes. The waits of
// this service are whole seconds, which never get there.
timespec deadlineIn(int timeoutMs)
{
    timespec deadline = {};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += timeoutMs / kMillisecondsPerSecond;
    deadline.tv_nsec += (timeoutMs % kMillisecondsPerSecond) * kNanosecondsPerMillisecond;
    return deadline;
}
}  // namespace

SignalHandler::SignalHandler(const char* name) : m_name(name), m_semaphore(name), m_mutex(name) {}

void SignalHandler::SendSignal(std::uint32_t bits)
{
    BRISCA_DEBUG(logNode, "'%s' SendSignal '%d'", m_name, static_cast<int>(bits));
    {
        const MutexPosixGuard guard(m_mutex);
        m_pending |= bits;
    }
    m_semaphore.Post();
}

std::uint32_t SignalHandler::WaitForSignal(std::uint32_t mask, int timeoutMs)
{
    BRISCA_DEBUG(logNode, "'%s' WaitForSignal", m_name);
    const timespec deadline = deadlineIn(timeoutMs);
    std::uint32_t received = 0;
    do {
        if (timeoutMs == 0) {
            m_semaphore.Wait();
        } else if (m_semaphore.Wait(deadline) == ETIMEDOUT) {
            BRISCA_DEBUG(logNode, "'%s' timeout", m_name);
            takePending();
            return 0;
        }
        received = pending();
    } while ((received & mask) == 0);
    BRISCA_DEBUG(logNode, "'%s' received signals %d", m_name, static_cast<int>(received));
    return takePending();
}

std::uint32_t SignalHandler::pending()
{
    const MutexPosixGuard guard(m_mutex);
    return m_pending;
}

std::uint32_t SignalHandler::takePending()
{
    const MutexPosixGuard guard(m_mutex);
    return std::exchange(m_pending, 0);
}

void SignalHandler::PrintSignalState()
{
    BRISCA_TRACE(logNode, "%-10s:%2d", m_name, static_cast<int>(pending()));
}

void SignalHandler::SetSignalHandlerName(const char* name)
{
    m_name = name;
    m_semaphore.SetSemaphoreName(name);
}
