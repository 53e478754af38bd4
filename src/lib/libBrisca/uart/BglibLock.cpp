#include "BglibLock.h"

#include "GosMutex.h"
#include "LineOwner.h"
#include "UsageGate.h"

namespace {
constexpr GosMutex packetMutex(GBS_BGLIB_SEMAPHORE_ID);
// Never destroyed: the tasks take it until the process is gone.
UsageGate& exchanges = *new UsageGate;
}  // namespace

BglibLock::BglibLock()
{
    exchanges.enter();
    packetMutex.lock();
}

BglibLock::~BglibLock()
{
    packetMutex.unlock();
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
