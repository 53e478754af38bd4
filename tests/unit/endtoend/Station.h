#pragma once

#include "Testing.h"
#include "efr32sim/Chip.h"
#include "efr32sim/Phone.h"

namespace endtoend {
using efr32sim::Bytes;
using efr32sim::ByteSpan;
using Milliseconds = std::chrono::milliseconds;

/// The CoAP application's side of the two pipes.
class Application
{
public:
    static constexpr Milliseconds kPatience{30000};

    Application();
    /// The next request; nothing when none came in time.
    std::optional<Bytes> waitRequest(Milliseconds limit = kPatience);
    /// An answer behind its header.
    void answer(ByteSpan payload);
    /// Any bytes into the pipe of the answers.
    void write(ByteSpan bytes) const;

private:
    std::optional<Bytes> read(std::size_t count, Milliseconds limit) const;

    UniqueFd m_requests;
    UniqueFd m_answers;
};

/// The service's whole Bluetooth side in this process, a simulated chip on its serial line, and the
/// application. Needs /tmp and /dev/evse of its own. One for the process, like the stack itself.
class Station
{
public:
    /// @param pace the serial line takes its real time
    explicit Station(bool pace);
    /// Resets the chip and starts the stack anew; returns when the chip advertises.
    void start();

    efr32sim::Chip chip;
    std::optional<Application> application;
};

/// @return @p length bytes that depend on @p seed
Bytes message(std::size_t length, unsigned seed = 0);
}  // namespace endtoend
