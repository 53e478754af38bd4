#include "mailbox/MailBox.h"

#include "facade/Log.h"

#include <cstring>

BRISCA_LOG_NODE(logNode, "[RTapi][MAILBOX]");

MailBox::MailBox(int messageSize, const char* name)
    : FifoMutex(name),
      m_mutex(name),
      m_mailCount("Mail"),
      m_fifo(messageSize, *this),
      m_name(name),
      m_messageSize(messageSize)
{
    SetMailboxName(name);
}

void MailBox::SetMailboxName(const char* name)
{
    m_name = name;
    m_fifoName = std::string(name) + "_FIFO";
    m_fifo.setName(m_fifoName.c_str());
}

void MailBox::SendMail(const char* data)
{
    BRISCA_DEBUG(logNode, " '%s' send mail", m_name);
    {
        const MutexPosixGuard guard(m_mutex);
        (void)m_fifo.push(data);
    }
    m_mailCount.Post();
}

void MailBox::WaitForMail(char* out)
{
    BRISCA_DEBUG(logNode, "'%s' WaitForMail", m_name);
    m_mailCount.Wait();
    if (m_fifo.isEmpty())
        return;
    BRISCA_DEBUG(logNode, "'%s' receive mail", m_name);
    const MutexPosixGuard guard(m_mutex);
    // Another receiver may have taken the last message since the look above.
    if (m_fifo.isEmpty())
        return;
    std::memmove(out, m_fifo.front(), static_cast<std::size_t>(m_messageSize));
    m_fifo.pop();
}

void MailBox::PrintMailboxState()
{
    if (!logNode->passes(LogLevel::Trace))
        return;
    const MutexPosixGuard guard(m_mutex);
    BRISCA_TRACE(logNode, "%-10s:%10d:%10d:%10d:%s:%s", m_name, m_messageSize, m_fifo.isEmpty(),
                 m_fifo.isFull(), m_fifo.front(), m_fifo.back());
}
