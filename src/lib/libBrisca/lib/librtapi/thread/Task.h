#pragma once

#include "mailbox/MailBox.h"
#include "signalHandler/SignalHandler.h"
#include "thread/Thread.h"

/// A thread that runs a plain C function and has signal bits and a mailbox of its own.
class Task : public Thread
{
public:
    /// @param entry       body of the task
    /// @param mailboxSize bytes of each message of its mailbox
    Task(std::string name, void (*entry)(), int mailboxSize);

    void Start();

    /// See SignalHandler::WaitForSignal(); the result as a signed number.
    int WaitForSignal(unsigned mask, int timeoutMs);
    /// Any thread.
    void SendSignal(unsigned bits);
    /// See MailBox::WaitForMail(). Any thread.
    void WaitForMail(char* buffer);
    /// See MailBox::SendMail(). Any thread.
    void SendMail(char* buffer);

    [[nodiscard]] std::string GetTaskName() const { return name(); }
    void PrintSignalState();
    void PrintMailboxState();

protected:
    void Execute(void* argument) override;

private:
    void (*m_entry)();
    SignalHandler m_signals;
    MailBox m_mailbox;
};
