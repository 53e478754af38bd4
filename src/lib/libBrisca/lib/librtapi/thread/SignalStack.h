#pragma once

#include <csignal>
#include <cstddef>
#include <memory>

/// A signal stack for the calling thread while the object lives, so that a handler installed with SA_ONSTACK
/// can report the overflow of the thread's own stack. The thread that makes it destroys it.
class SignalStack
{
public:
    SignalStack();
    ~SignalStack();
    SignalStack(const SignalStack&) = delete;
    SignalStack& operator=(const SignalStack&) = delete;

private:
    std::unique_ptr<std::byte[]> m_memory;
    stack_t m_previous = {};
};
