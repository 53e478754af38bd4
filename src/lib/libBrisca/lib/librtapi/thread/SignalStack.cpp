#include "thread/SignalStack.h"

namespace {
/// Room for the formatting of a log line, an unwinder and what runs at exit, in bytes.
constexpr std::size_t kSize = std::size_t{128} * 1024;
}  // namespace

// The memory is left uninitialised: its pages are taken from the system only when a handler runs.
SignalStack::SignalStack() : m_memory(new std::byte[kSize])
{
    stack_t own = {};
    own.ss_sp = m_memory.get();
    own.ss_size = kSize;
    sigaltstack(&own, &m_previous);
}

SignalStack::~SignalStack()
{
    sigaltstack(&m_previous, nullptr);
}
