#pragma once

#include "Testing.h"
#include "facade/LogFacade.h"

using Lines = std::vector<std::string>;

/// A test that may set log levels.
class RuntimeTest : public testing::Test
{
protected:
    ~RuntimeTest() override { LogFacade::inst().setLevel(LogLevel::Notic); }
};

/// The system calls of the runtime pass through here first. Every setting belongs to the calling thread.
namespace fakesystem {
extern thread_local int semInitError;   ///< errno of the next sem_init; 0 lets it succeed
extern thread_local int semWaitError;   ///< errno of the next sem_wait; 0 lets it succeed
extern thread_local long nanoseconds;   ///< what CLOCK_REALTIME shows behind its seconds; -1 the truth
extern thread_local timespec deadline;  ///< of the latest sem_timedwait
/// Fixes the nanoseconds of CLOCK_REALTIME for a scope.
class NanosecondsAre
{
public:
    explicit NanosecondsAre(long value) { nanoseconds = value; }
    ~NanosecondsAre() { nanoseconds = -1; }
    NanosecondsAre(const NanosecondsAre&) = delete;
    NanosecondsAre& operator=(const NanosecondsAre&) = delete;
};
}  // namespace fakesystem
