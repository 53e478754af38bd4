#pragma once

/// The lock that a Fifo uses around its indices.
class FifoMutexI
{
public:
    /// Blocks until the lock is taken; false when it could not be taken.
    [[nodiscard]] virtual bool Take() = 0;
    virtual void Give() = 0;
    /// Replaces the borrowed name of the lock.
    virtual void SetName(const char* name) = 0;
    virtual ~FifoMutexI() = default;
};
