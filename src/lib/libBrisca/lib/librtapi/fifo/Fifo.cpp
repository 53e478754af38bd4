#include "fifo/Fifo.h"

#include <algorithm>
#include <cstring>

namespace {
std::uint8_t nextIndex(std::uint8_t index)
{
    return static_cast<std::uint8_t>((index + 1) % Fifo::kSlotCount);
}
}  // namespace

Fifo::Fifo(int messageSize, FifoMutexI& lock)
    : m_lock(lock), m_messageSize(static_cast<std::size_t>(std::max(messageSize, 0)))
{
    // A NUL that no message reaches follows each slot, so that a slot can always be printed as text.
    const std::size_t stride = m_messageSize + 1;
    m_storage = std::make_unique<char[]>(stride * kSlotCount);
    for (std::size_t index = 0; index < kSlotCount; ++index)
        m_slots[index].data = m_storage.get() + index * stride;
}

bool Fifo::isEmpty()
{
    if (!m_lock.Take())
        return true;
    const bool empty = m_slots[m_front].state != SlotState::Filled;
    m_lock.Give();
    return empty;
}

bool Fifo::isFull()
{
    if (!m_lock.Take())
        return true;
    const std::uint8_t next = nextIndex(m_back);
    const bool full = next == m_front && m_slots[next].state != SlotState::Free;
    m_lock.Give();
    return full;
}

bool Fifo::push(Msg message)
{
    if (isFull() || !m_lock.Take())
        return false;
    m_back = nextIndex(m_back);
    Slot& slot = m_slots[m_back];
    m_lock.Give();
    fill(slot, message);
    return true;
}

// A slot's length never exceeds its buffer, whatever the sender says.
void Fifo::fill(Slot& slot, Msg message) const
{
    slot.state = SlotState::BeingWritten;
    const std::size_t length =
        message.length != 0 ? std::size_t{message.length} : strnlen(message.data, m_messageSize);
    slot.length = static_cast<std::uint16_t>(std::min(length, m_messageSize));
    std::memcpy(slot.data, message.data, m_messageSize);
    slot.state = SlotState::Filled;
}

bool Fifo::push(const char* data)
{
    return push(Msg{0, data});
}

bool Fifo::push(const char* data, int length)
{
    return push(Msg{static_cast<std::uint16_t>(length), data});
}

FifoI::Msg Fifo::messageAt(std::uint8_t index)
{
    return {m_slots[index].length, m_slots[index].data};
}

void Fifo::front(Msg& message)
{
    message = isEmpty() ? Msg{0, ""} : messageAt(m_front);
}

void Fifo::back(Msg& message)
{
    message = isEmpty() ? Msg{0, ""} : messageAt(m_back);
}

const char* Fifo::front()
{
    Msg message = {};
    front(message);
    return message.data;
}

const char* Fifo::back()
{
    Msg message = {};
    back(message);
    return message.data;
}

void Fifo::pop()
{
    if (!m_lock.Take())
        return;
    if (m_slots[m_front].state == SlotState::Filled) {
        m_slots[m_front].state = SlotState::Free;
        m_front = nextIndex(m_front);
    }
    m_lock.Give();
}
