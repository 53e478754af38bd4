#pragma once

/// A flag that one thread raises and another waits for with poll().
class CancelEvent
{
public:
    CancelEvent();
    ~CancelEvent();
    CancelEvent(const CancelEvent&) = delete;
    CancelEvent& operator=(const CancelEvent&) = delete;

    /// False when the system had no descriptor to give.
    [[nodiscard]] bool isValid() const { return m_descriptor >= 0; }
    /// Readable from raise() on.
    [[nodiscard]] int descriptor() const { return m_descriptor; }
    /// Any thread.
    void raise() const;

private:
    int m_descriptor;
};
