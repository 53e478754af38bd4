#pragma once

#include <cstdint>

/// A bounded queue of messages of one fixed size.
class FifoI
{
public:
    /// One message; the data is borrowed.
    struct Msg
    {
        std::uint16_t length;  ///< bytes; 0 when pushing means "up to the first NUL"
        const char* data;      ///< always readable for the FIFO's whole message size when pushed
    };

    /// Appends a copy of the message; false, and the message is dropped, when the FIFO is full.
    [[nodiscard]] virtual bool push(Msg message) = 0;
    /// The oldest message, {0, ""} when empty. Its data stays valid until it is popped.
    virtual void front(Msg& message) = 0;
    /// The newest message, {0, ""} when empty.
    virtual void back(Msg& message) = 0;
    [[nodiscard]] virtual bool push(const char* data) = 0;
    /// Data of the oldest message, "" when empty.
    [[nodiscard]] virtual const char* front() = 0;
    /// Data of the newest message, "" when empty.
    [[nodiscard]] virtual const char* back() = 0;
    /// Drops the oldest message; an empty FIFO stays as it is.
    virtual void pop() = 0;
    [[nodiscard]] virtual bool isEmpty() = 0;
    [[nodiscard]] virtual bool isFull() = 0;
    virtual ~FifoI() = default;
};
