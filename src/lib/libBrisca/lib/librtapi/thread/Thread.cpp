#include "thread/Thread.h"

#include "facade/Log.h"
#include "thread/SignalStack.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <utility>

BRISCA_LOG_NODE(logNode, "RTapi.THREAD");

Thread::Thread(std::string name) : m_name(std::move(name)) {}

void Thread::Start()
{
    Start(nullptr);
}

void Thread::Start(void* argument)
{
    BRISCA_DEBUG(logNode, "Start thread '%s'", m_name.c_str());
    m_argument = argument;
    pthread_t id = {};
    if (pthread_create(&id, nullptr, EntryPoint, this) != 0) {
        BRISCA_FATAL(logNode, "ERROR creating thread %s", m_name.c_str());
        std::exit(1);
    }
    m_id.store(id, std::memory_order_release);
    m_joinable = true;
}

void* Thread::EntryPoint(void* self)
{
    const SignalStack signalStack;
    auto* const thread = static_cast<Thread*>(self);
    thread->m_id.store(pthread_self(), std::memory_order_release);
    thread->Run(thread->m_argument);
    return nullptr;
}

void Thread::Run(void* argument)
{
    Setup();
    Execute(argument);
}

void Thread::Execute(void*)
{
    BRISCA_FATAL(logNode, "FATAL! Thread::Start (%s) called from a constructor? Exit!", m_name.c_str());
    std::exit(-1);
}

void Thread::Join()
{
    if (!m_joinable.exchange(false))
        return;
    pthread_join(GetId(), nullptr);
    // The system may give the id to another thread from now on.
    m_id.store(pthread_t{}, std::memory_order_release);
}

void Thread::Exit()
{
    BRISCA_DEBUG(logNode, "pthread_exit called with %s", m_name.c_str());
    pthread_exit(nullptr);
}

// The two words are the reverse of the outcome: part of the log's interface.
void Thread::Kill()
{
    const int result = m_joinable ? pthread_kill(GetId(), SIGPIPE) : ESRCH;
    BRISCA_DEBUG(logNode, "pthread_kill called with %s - %s", m_name.c_str(), result == 0 ? "KO" : "OK");
}

bool Thread::isCurrent() const
{
    return pthread_equal(GetId(), pthread_self()) != 0;
}
