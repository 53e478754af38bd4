#include "fifo/FifoMutex.h"

#include "facade/Log.h"

BRISCA_LOG_NODE(logNode, "RTapi.FIFO_MUTEX");

FifoMutex::FifoMutex(const char* name) : m_mutex(name), m_name(name) {}

bool FifoMutex::Take()
{
    BRISCA_DEBUG(logNode, "ENTER Take Mutex '%s'", m_name);
    m_mutex.Lock();
    return true;
}

void FifoMutex::Give()
{
    BRISCA_DEBUG(logNode, "ENTER Give Mutex '%s'", m_name);
    m_mutex.Unlock();
}

void FifoMutex::SetName(const char* name)
{
    m_name = name;
    m_mutex.SetMutexName(name);
}
