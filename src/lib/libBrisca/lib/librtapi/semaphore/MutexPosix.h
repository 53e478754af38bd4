#pragma once

#include "semaphore/NamedSemaphore.h"

/// A lock made of a counting semaphore: not recursive, without an owner (any thread may unlock), without
/// time-out. Any thread.
class MutexPosix : public NamedSemaphore
{
public:
    /// @param name borrowed: it must outlive the lock. The process ends with status 0 when creation fails.
    explicit MutexPosix(const char* name = "---");

    /// Blocks until the lock is free.
    /// @return 0, or -1 with errno set (one FATAL line)
    int Lock();
    /// @return the value after the release: 1 when nobody took the lock meanwhile
    int Unlock();
    /// 1 free, 0 taken.
    [[nodiscard]] int Getvalue();
    /// Replaces the borrowed name.
    void SetMutexName(const char* name);
};

/// Holds a MutexPosix for a scope.
class MutexPosixGuard
{
public:
    explicit MutexPosixGuard(MutexPosix& mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~MutexPosixGuard() { m_mutex.Unlock(); }
    MutexPosixGuard(const MutexPosixGuard&) = delete;
    MutexPosixGuard& operator=(const MutexPosixGuard&) = delete;

private:
    MutexPosix& m_mutex;
};
