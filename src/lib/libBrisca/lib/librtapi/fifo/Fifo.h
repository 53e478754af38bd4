#pragma once

#include "fifo/FifoI.h"
#include "fifo/FifoMutexI.h"

#include <array>
#include <atomic>
#include <memory>

/// A ring of 32 messages of one size. Its lock guards the two indices only: a slot is filled after the lock
/// has been given back, so users with several threads hold a lock of their own around push(), and around
/// front() with pop(), as MailBox does.
class Fifo : public FifoI
{
public:
    static constexpr std::uint8_t kSlotCount = 32;

    /// @param messageSize bytes copied of every message
    /// @param lock        borrowed: it must outlive the FIFO
    Fifo(int messageSize, FifoMutexI& lock);

    [[nodiscard]] bool push(Msg message) override;
    void front(Msg& message) override;
    void back(Msg& message) override;
    [[nodiscard]] bool push(const char* data) override;
    [[nodiscard]] const char* front() override;
    [[nodiscard]] const char* back() override;
    void pop() override;
    [[nodiscard]] bool isEmpty() override;
    [[nodiscard]] bool isFull() override;

    [[nodiscard]] bool push(const char* data, int length);
    /// Replaces the borrowed name.
    void setName(const char* name) { m_name = name; }
    [[nodiscard]] const char* name() const { return m_name; }

private:
    enum class SlotState : std::uint8_t { Free = 0, BeingWritten = 1, Filled = 2 };
    struct Slot
    {
        // Set to Filled outside the lock by the writer, while isEmpty() may look at it.
        std::atomic<SlotState> state = SlotState::Free;
        std::uint16_t length = 0;
        char* data = nullptr;
    };
    [[nodiscard]] Msg messageAt(std::uint8_t index);
    void fill(Slot& slot, Msg message) const;

    FifoMutexI& m_lock;
    std::size_t m_messageSize;
    std::unique_ptr<char[]> m_storage;
    std::array<Slot, kSlotCount> m_slots;
    std::uint8_t m_back = 255;  // written last; the first push moves it to slot 0
    std::uint8_t m_front = 0;   // read next
    const char* m_name = "";
};
