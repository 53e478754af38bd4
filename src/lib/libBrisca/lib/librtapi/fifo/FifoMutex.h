#pragma once

#include "fifo/FifoMutexI.h"
#include "semaphore/MutexPosix.h"

/// Gives a MutexPosix the shape that Fifo expects. Any thread.
class FifoMutex : public FifoMutexI
{
public:
    /// @param name borrowed: it must outlive the lock
    explicit FifoMutex(const char* name);

    [[nodiscard]] bool Take() override;
    void Give() override;
    void SetName(const char* name) override;

private:
    MutexPosix m_mutex;
    const char* m_name;
};
