#include "thread/Task.h"

#include "facade/Log.h"

#include <algorithm>
#include <utility>

BRISCA_LOG_NODE(logNode, "RTapi.TASK");

Task::Task(std::string taskName, void (*entry)(), int mailboxSize)
    : Thread(std::move(taskName)),
      m_entry(entry),
      m_signals(name().c_str()),
      m_mailbox(mailboxSize, name().c_str())
{
}

void Task::Start()
{
    BRISCA_DEBUG(logNode, "Start task '%s'", name().c_str());
    Thread::Start();
}

void Task::Execute(void*)
{
    m_entry();
}

int Task::WaitForSignal(unsigned mask, int timeoutMs)
{
    BRISCA_DEBUG(logNode, "Task '%s' wait for signal '%d'", name().c_str(), static_cast<int>(mask));
    return static_cast<int>(m_signals.WaitForSignal(mask, timeoutMs));
}

void Task::SendSignal(unsigned bits)
{
    BRISCA_DEBUG(logNode, "Task '%s' send signal '%d'", name().c_str(), static_cast<int>(bits));
    m_signals.SendSignal(bits);
}

void Task::WaitForMail(char* buffer)
{
    BRISCA_DEBUG(logNode, "Task '%s' wait for mail", name().c_str());
    m_mailbox.WaitForMail(buffer);
}

void Task::SendMail(char* buffer)
{
    // A mail need not be text: never look further than the bytes that are sent.
    BRISCA_DEBUG(logNode, "Task '%s' send mail '%.*s'", name().c_str(), std::max(m_mailbox.messageSize(), 0),
                 buffer);
    m_mailbox.SendMail(buffer);
}

void Task::PrintSignalState()
{
    m_signals.PrintSignalState();
}

void Task::PrintMailboxState()
{
    m_mailbox.PrintMailboxState();
}
