#pragma once

#include "fifo/Fifo.h"
#include "fifo/FifoMutex.h"
#include "semaphore/MutexPosix.h"
#include "semaphore/SemPosix.h"

#include <string>

/// Up to 32 messages of one fixed size, waiting for whoever reads them. Any thread may send and receive.
/// Lock order: the mailbox's mutex, then (inside each FIFO operation) the mailbox in its role as FIFO lock.
class MailBox : public FifoMutex
{
public:
    /// @param messageSize bytes of every message
    /// @param name        borrowed: it must outlive the mailbox
    MailBox(int messageSize, const char* name);

    /// Appends a copy of a message; dropped when the mailbox is full.
    /// @param data the whole message size is copied from it, whatever it holds
    void SendMail(const char* data);

    /// Blocks without limit until a message has been sent and takes it. A message that was dropped wakes a
    /// waiter, too; when nothing is there for it then, it returns and leaves @p out as it is.
    /// @param out receives the message size in bytes
    void WaitForMail(char* out);

    /// Logs name, size, fill state and the outer messages as text at TRACE.
    void PrintMailboxState();
    /// Replaces the borrowed name; the FIFO is named with "_FIFO" behind it.
    void SetMailboxName(const char* name);

    /// Bytes of every message.
    [[nodiscard]] int messageSize() const { return m_messageSize; }

private:
    MutexPosix m_mutex;
    SemPosix m_mailCount;  // one for every message sent, dropped ones included
    Fifo m_fifo;           // filled and drained under m_mutex
    const char* m_name;
    int m_messageSize;
    std::string m_fifoName;
};
