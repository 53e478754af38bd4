#pragma once

#include "GBSSlave.h"
#include "GOS.h"
#include "MemoryLine.h"
#include "NCP_Manager.h"
#include "Testing.h"
#include "facade/LogFacade.h"

namespace gbstest {
using Lines = std::vector<std::string>;

/// "20 01 FF" <-> the bytes.
std::string fromHex(std::string_view text);
std::string toHex(std::string_view bytes);

/// A packet with a header that fits its payload. @param id class and message, "03 14"
std::string response(std::string_view id, std::string_view payload);
std::string event(std::string_view id, std::string_view payload);

/// The co-processor at the other end of an in-memory line, which it binds for its lifetime.
class FakeChip
{
public:
    /// Gets a command as "class id: payload", returns the bytes that the chip sends for it.
    using Answer = std::function<std::string(const std::string& command)>;

    FakeChip();

    /// Until it is told otherwise the chip answers every command with result 0.
    void answerWith(Answer answer);
    /// Puts bytes on the line to the host.
    void send(std::string_view bytes);
    /// The commands so far, each "class id: payload"; one with a wrong header reads "malformed".
    [[nodiscard]] Lines commands();
    /// The same in one line, joined by " | "; then forgets them.
    std::string takeCommands();
    /// True when every command since they were last taken was sent with GOS semaphore 1 held.
    [[nodiscard]] bool allUnderApiLock();

private:
    Answer m_answer;
    Lines m_commands;
    bool m_allUnderApiLock = true;
    std::optional<MemoryLine> m_line;  // its mutex guards the rest
};

/// Result 0 for every command.
std::string accept(const std::string& command);
/// "03 14" of "03 14: 00 04 02".
std::string idOf(const std::string& command);

/// How often a semaphore has been asked for since the process began, and whether it is taken now.
int semaphoreRequests(unsigned id);
bool semaphoreTaken(unsigned id);

/// A call with its arguments, for the rows of a table.
using Call = std::function<std::uint32_t()>;
template <class... Arguments>
Call call(std::uint32_t (*function)(Arguments...), std::type_identity_t<Arguments>... arguments)
{
    return [=] { return function(arguments...); };
}

/// Runs a function on a GOS task (id 0), as the waiting calls need; one at a time.
std::future<std::string> onTask(std::function<std::string()> function);
/// Handles events until the function that runs on the task is done.
std::string pumpUntilDone(std::future<std::string>& done);
}  // namespace gbstest
