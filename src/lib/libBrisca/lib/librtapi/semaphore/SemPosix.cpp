#include "semaphore/SemPosix.h"

#include "facade/Log.h"

namespace {
constexpr const char* kLogNode = "[RTapi][SEM]";
}

BRISCA_LOG_NODE(logNode, kLogNode);

SemPosix::SemPosix(const char* name) : NamedSemaphore(kLogNode, name, 0) {}

void SemPosix::Wait()
{
    Getvalue();
    wait();
}

int SemPosix::Wait(timespec deadline)
{
    Getvalue();
    return waitUntil(deadline);
}

void SemPosix::Post()
{
    post();
    Getvalue();
}

int SemPosix::Getvalue()
{
    const int count = value(true);
    BRISCA_DEBUG(logNode, " %s:%d ", name(), count);
    return count;
}

void SemPosix::SetSemaphoreName(const char* name)
{
    setName(name);
}
