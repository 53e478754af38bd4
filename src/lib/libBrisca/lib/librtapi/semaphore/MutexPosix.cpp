#include "semaphore/MutexPosix.h"

#include "facade/Log.h"

namespace {
constexpr const char* kLogNode = "[RTapi][MUTEX]";
constexpr unsigned kFree = 1;
}  // namespace

BRISCA_LOG_NODE(logNode, kLogNode);

MutexPosix::MutexPosix(const char* name) : NamedSemaphore(kLogNode, name, kFree) {}

int MutexPosix::Lock()
{
    return wait();
}

int MutexPosix::Unlock()
{
    post();
    return Getvalue();
}

int MutexPosix::Getvalue()
{
    return value(false);
}

void MutexPosix::SetMutexName(const char* name)
{
    setName(name);
}
