#include "FakeSystem.h"

#include <semaphore.h>

namespace fakesystem {
thread_local int semInitError = 0;
thread_local int semWaitError = 0;
thread_local long nanoseconds = -1;
thread_local timespec deadline = {};
}  // namespace fakesystem

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec* time);
int __real_sem_init(sem_t* semaphore, int shared, unsigned value);
int __real_sem_wait(sem_t* semaphore);
int __real_sem_timedwait(sem_t* semaphore, const timespec* deadline);

int __wrap_clock_gettime(clockid_t clock, timespec* time)
{
    const int result = __real_clock_gettime(clock, time);
    if (clock == CLOCK_REALTIME && fakesystem::nanoseconds >= 0)
        time->tv_nsec = fakesystem::nanoseconds;
    return result;
}

int __wrap_sem_init(sem_t* semaphore, int shared, unsigned value)
{
    errno = std::exchange(fakesystem::semInitError, 0);
    return errno != 0 ? -1 : __real_sem_init(semaphore, shared, value);
}

int __wrap_sem_wait(sem_t* semaphore)
{
    errno = std::exchange(fakesystem::semWaitError, 0);
    return errno != 0 ? -1 : __real_sem_wait(semaphore);
}

int __wrap_sem_timedwait(sem_t* semaphore, const timespec* deadline)
{
    fakesystem::deadline = *deadline;
    return __real_sem_timedwait(semaphore, deadline);
}
}
