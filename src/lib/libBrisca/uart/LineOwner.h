#pragma once

// Who may touch the serial line of the chip, and when.
//
// The same terminal serves the bootloader's console, and a reset of the chip changes its owner: the host lets
// the line go before the reset, the bootloader client opens it and speaks with the bootloader, and the host
// takes it anew when the firmware runs. The tasks of the stack outlive all of this and ask here:
//
//   state      since            commands            events
//   unclaimed  the beginning    work                are handled   no terminal: a line that a test has bound
//   let go     letGo()          fail, send no byte  stay unread   the terminal is someone else's
//   held       take()           work                stay unread   the boot event has no reader yet
//   pumped     resumeEvents()   work                are handled   the stack runs
//
// take() leaves the handling of events as it is: an unclaimed line is pumped at once. Until the terminal is
// open, and when it cannot be opened, a line whose events are handled is unclaimed, any other let go. The
// state is changed by one thread, the one that resets the chip (the service's main thread), and read by any.
//
// Locks of the stack, in the order in which they are taken. Whoever holds one takes only those below it:
//
//   PumpTurn           one event, from before it is read until it has been handled
//   GOS semaphore 4    one message to the phone, until its result is known
//   GOS semaphore 1    one call of the facade, the wait for its event included. The event task does without
//                      it while such a wait may hold it
//   GOS semaphore 2    the advertising buffers, while they are written or copied
//   ExchangeTurn       the packet buffers, the ring of events and the line, for one exchange; holds GOS
//                      semaphore 0
//
// letGo() needs none of them: it changes the state first, so that whoever has a turn gives it back soon.
namespace LineOwner {
/// Opens the terminal for the host: 115200 baud, RTS/CTS, 100 ms reads. One that is still open is closed
/// first. Blocks for up to 150 ms, longer by the time that an exchange in progress needs to give up.
/// @param path terminal device
/// @return false when it cannot be opened, with the reason logged; no line is held then
[[nodiscard]] bool take(const char* path);

/// Gives the line up. From the call on, commands fail at once with a zeroed response and send no byte, no
/// event is read, and reads and writes in progress end within 100 ms. On return no packet exchange is in
/// progress and no event is being handled, and the terminal is closed and open to others. Harmless when the
/// line is not held. Blocks for about 100 ms when an exchange is in progress, 5 s at the very most. Not by
/// the pump itself.
/// @return false when an exchange is in progress even so
bool letGo();

/// Lets the event pump work again.
void resumeEvents();

/// Whether the terminal is open and the line not let go.
[[nodiscard]] bool isHeld();

/// Whether the line was let go and not taken since: what an exchange asks in its turn, and a retry loop
/// before its next attempt. Not the opposite of isHeld(): an unclaimed line is neither.
[[nodiscard]] bool isLetGo();

/// One exchange of packets, from the moment the response buffer is cleared until the response has been read.
/// Recursive, and handed over in the order of asking. Any thread; never while it waits for a signal, because
/// the event that gives the signal is read under it.
class [[nodiscard]] ExchangeTurn
{
public:
    ExchangeTurn();
    ~ExchangeTurn();
    ExchangeTurn(const ExchangeTurn&) = delete;
    ExchangeTurn& operator=(const ExchangeTurn&) = delete;

private:
    const bool m_isOutermost;
};

/// One turn of the pump: from before it asks whether it may read an event until it has handled it. letGo()
/// waits for its end, so that no event of the chip's former life is read, stored or told after the reset.
class [[nodiscard]] PumpTurn
{
public:
    PumpTurn();
    ~PumpTurn();
    PumpTurn(const PumpTurn&) = delete;
    PumpTurn& operator=(const PumpTurn&) = delete;

    /// Whether this turn may read and handle an event.
    [[nodiscard]] bool isAllowed() const { return m_isAllowed; }

private:
    const bool m_isAllowed;
};
}  // namespace LineOwner
