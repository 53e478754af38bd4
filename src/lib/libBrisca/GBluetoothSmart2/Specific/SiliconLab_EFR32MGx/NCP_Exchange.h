#pragma once

// How every command reaches the co-processor and how its answer is read.

#include "LineOwner.h"
#include "NCP_Commands.h"
#include "NCP_Payload.h"

#include <initializer_list>

namespace ncp {
/// One command and its response. The shared packet buffers belong to the object while it lives, so it must
/// not outlive the reading of the outputs, and never lives across a wait for an event.
class Exchange
{
public:
    /// Sends the command and waits for its response. Fields that do not fit one packet are not sent.
    Exchange(Command command, std::initializer_list<Field> fields);

    /// The response belongs to the command; false when it was lost or nothing was sent.
    [[nodiscard]] bool answered() const { return m_answered; }
    /// The response's result code; 0 is success.
    [[nodiscard]] std::uint16_t result() const { return payload().u16(); }
    [[nodiscard]] bool succeeded() const { return m_answered && result() == 0; }
    /// All fields of the response.
    [[nodiscard]] PayloadReader payload() const { return PayloadReader(*gecko_rsp_msg); }
    /// The fields behind the result code.
    [[nodiscard]] PayloadReader outputs() const;

private:
    LineOwner::ExchangeTurn m_turn;
    bool m_answered = false;
};

/// Sends a command whose response is nothing but a result.
/// @return 1 when that is 0, else 0
std::uint32_t run(Command command, std::initializer_list<Field> fields);

/// Sends a command that has no response.
void sendOnly(Command command, std::initializer_list<Field> fields);

/// run(), and then the wait for the event that completes the command.
std::uint32_t runAndWait(Command command, std::initializer_list<Field> fields, std::uint32_t eventId);
}  // namespace ncp
