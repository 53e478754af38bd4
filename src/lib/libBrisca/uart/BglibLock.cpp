#include "BglibLock.h"

#include "GOS.h"
#include "LineOwner.h"
#include "UsageGate.h"

namespace {
// Never destroyed: the tasks take it until the process is gone.
UsageGate& exchanges = *new UsageGate;
}  // namespace

BglibLock::BglibLock()
{
    exchanges.enter();
    GOS_WaitForSemaphore(GBS_BGLIB_SEMAPHORE_ID);
}

BglibLock::~BglibLock()
{
    GOS_ReleaseSemaphore(GBS_BGLIB_SEMAPHORE_ID);
    exchanges.leave();
}

bool BglibLock::lineUsable() const
{
    return !LineOwner::isLetGo();
}

bool BglibLock::waitUntilFree(std::chrono::milliseconds limit)
{
    return exchanges.waitUntilIdle(limit);
}
