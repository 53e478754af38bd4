#pragma once

// Who owns the serial line of the chip: this co-processor host, or someone else.
//
// The same terminal serves the bootloader's console, and a reset of the chip changes its owner: the host lets
// the line go before the reset, the bootloader client opens it and speaks with the bootloader, and the host
// takes it anew when the firmware runs. The task that pumps events outlives all of this, so it is told here
// when the line is not its own: a pump that keeps reading takes bytes of the bootloader's prompt.
//
//   before the first reset   not let go, events active   (line open or not)
//   letGo()                  let go, events suspended    every reset of the chip
//   NCPDriver_Init() == 1    held, events suspended      commands work from here on
//   resumeEvents()           held, events active         the stack is started, a boot event has its reader
namespace LineOwner {
/// Gives the line up. From the call on, commands fail at once with a zeroed response and send no byte, no
/// event is read, and reads and writes in progress end within 100 ms. On return no packet exchange is in
/// progress and no event is being handled, the events of the chip that is being reset are forgotten, and the
/// terminal is closed and open to others. Harmless when the line is not held. Blocks for about 100 ms when an
/// exchange is in progress, 5 s at the very most. Called on the main thread by every reset of the chip
/// (BluetoothManager::resetBleStartedFlag); not by the pump itself.
void letGo();

/// Whether the terminal is open and the line not let go. Any thread.
[[nodiscard]] bool isHeld();

/// Whether the line was let go and not taken since: what a retry loop asks before its next attempt. Any
/// thread. Not the opposite of isHeld(): before the first take the line is neither.
[[nodiscard]] bool isLetGo();

/// Lets the event pump work again. Called on the main thread when the stack is started (Brisca::startStack).
void resumeEvents();

/// Whether the event pump may read and handle events. Any thread.
[[nodiscard]] bool eventsActive();

/// One turn of the pump: from before it asks whether it may read an event until it has handled it. letGo()
/// waits for its end, so that no event of the chip's former life is read, stored or told after the reset.
class PumpTurn
{
public:
    PumpTurn();
    ~PumpTurn();
    PumpTurn(const PumpTurn&) = delete;
    PumpTurn& operator=(const PumpTurn&) = delete;

    /// Whether this turn may read and handle an event.
    [[nodiscard]] bool isAllowed() const { return m_allowed; }

private:
    bool m_allowed;
};
}  // namespace LineOwner
