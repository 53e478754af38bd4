#include "BglibLock.h"

#include "GOS.h"
#include "LineOwner.h"
#include "UsageGate.h"

namespace {
UsageGate exchanges;
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
