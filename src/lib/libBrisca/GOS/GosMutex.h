#pragma once

#include "GOS.h"

/// A numbered semaphore of GOS.h as std::lock_guard and std::unique_lock take it.
class GosMutex
{
public:
    constexpr explicit GosMutex(GOS_SemaphoreId id) : m_id(id) {}
    void lock() const { GOS_WaitForSemaphore(m_id); }
    void unlock() const { GOS_ReleaseSemaphore(m_id); }

private:
    GOS_SemaphoreId m_id;
};
