#include "semaphore/NamedSemaphore.h"

#include "facade/Log.h"

#include <cerrno>
#include <cstdlib>

namespace {
constexpr int kNotShared = 0;
}

NamedSemaphore::NamedSemaphore(const char* logNode, const char* name, unsigned initialCount)
    : m_logNode(logNode), m_name(name)
{
    Create(initialCount);
}

NamedSemaphore::~NamedSemaphore()
{
    sem_destroy(&m_semaphore);
}

void NamedSemaphore::Create(unsigned initialCount)
{
    if (sem_init(&m_semaphore, kNotShared, initialCount) == 0)
        return;
    const int error = errno;
    BRISCA_FATAL(LogFacade::inst().findOrCreateNode(m_logNode, -1), "Create failed on %s, errno = %d", m_name,
                 error);
    std::exit(0);
}

int NamedSemaphore::wait()
{
    int result = 0;
    do {
        result = sem_wait(&m_semaphore);
    } while (result != 0 && errno == EINTR);
    if (result != 0)
        reportFailure();
    return result;
}

int NamedSemaphore::waitUntil(const timespec& deadline)
{
    return sem_timedwait(&m_semaphore, &deadline) == 0 ? 0 : errno;
}

void NamedSemaphore::post()
{
    if (sem_post(&m_semaphore) != 0)
        reportFailure();
}

int NamedSemaphore::value(bool report)
{
    int count = 0;
    if (sem_getvalue(&m_semaphore, &count) != 0 && report)
        reportFailure();
    return count;
}

// Looked up by name instead of kept as a pointer: the numbered semaphores are built at static initialisation,
// maybe before the file that creates the node.
void NamedSemaphore::reportFailure() const
{
    const int error = errno;
    BRISCA_FATAL(LogFacade::inst().findOrCreateNode(m_logNode, -1), "Getvalue failed on '%s', errno = %d",
                 m_name, error);
}
