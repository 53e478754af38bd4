#pragma once

#include <semaphore.h>

/// What MutexPosix and SemPosix share: one POSIX semaphore with a name for the log, which reports the
/// failures of its system calls. It has no owner and no priority inheritance, and is not shared between
/// processes.
class NamedSemaphore
{
public:
    NamedSemaphore(const NamedSemaphore&) = delete;
    NamedSemaphore& operator=(const NamedSemaphore&) = delete;

protected:
    /// Ends the process with status 0 when the semaphore cannot be created.
    /// @param logNode      name of the log node for failures; outlives the object
    /// @param name         borrowed: it must outlive the object
    /// @param initialCount first value of the semaphore
    NamedSemaphore(const char* logNode, const char* name, unsigned initialCount);
    ~NamedSemaphore();

    [[nodiscard]] const char* name() const { return m_name; }
    void setName(const char* name) { m_name = name; }

    /// Takes one count, blocking without limit; a handler of a POSIX signal does not end the wait.
    /// @return 0, or -1 with errno set
    int wait();
    /// Takes one count or gives up at a CLOCK_REALTIME time.
    /// @return 0 when taken, else the errno of sem_timedwait: ETIMEDOUT, EINVAL, EINTR
    int waitUntil(const timespec& deadline);
    /// Gives one count.
    void post();
    /// The current count; failures are reported when @p report is set.
    int value(bool report);

private:
    void Create(unsigned initialCount);
    void reportFailure() const;

    const char* m_logNode;
    const char* m_name;
    sem_t m_semaphore;
};
