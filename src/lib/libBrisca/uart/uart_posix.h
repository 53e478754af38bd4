#pragma once

#include <cstdint>

// The serial line to the co-processor, on POSIX terminals.
//
// One descriptor for the process, -1 while no line is open. uartOpen and uartClose are called by one thread
// at a time (the one that owns the line, see LineOwner.h); every other function may be called by any thread,
// also while the line is being closed: no call ever touches a descriptor that has been closed, and none sits
// in the kernel for more than 100 ms at a time, so each notices promptly that the line was closed or
// abandoned.

/// Opens the line raw, 8N1, for this process alone, and drops stale input (takes 50 to 150 ms, longer while
/// the chip keeps sending: at most 4096 bytes are dropped). A line that is still open is closed first.
/// @param path      terminal device
/// @param baudRate  300, 1200, 2400, 4800, 9600, 19200, 38400, 57600 or 115200
/// @param flowControl RTS/CTS when not 0
/// @param readTimeoutMs how long one read waits for its first byte, in steps of 100 ms up to 25500;
///                  negative: until a byte comes
/// @return 0, or -1 with the reason logged
[[nodiscard]] std::int32_t uartOpen(const char* path, std::uint32_t baudRate, std::uint32_t flowControl,
                                    std::int32_t readTimeoutMs);

/// Reads exactly @p length bytes, waiting for them without limit.
/// @return @p length; -1, and the bytes read so far lost, when no line is open, the line is abandoned or hung
///         up, or a read fails
[[nodiscard]] std::int32_t uartRx(std::uint32_t length, std::uint8_t* buffer);

/// One read of at most @p length bytes, which waits as long as uartOpen was told.
/// @return bytes read, 0 on time-out, -1 on failure or when no line is open
[[nodiscard]] std::int32_t uartRxNonBlocking(std::uint32_t length, std::uint8_t* buffer);

/// @return bytes waiting to be read; -1 on failure or when no line is open
[[nodiscard]] std::int32_t uartRxPeek();

/// Writes exactly @p length bytes, waiting for room (a peer that holds CTS) without limit.
/// @return @p length; -1 when no line is open, the line is abandoned, or a write fails
std::int32_t uartTx(std::uint32_t length, const std::uint8_t* bytes);

/// Makes every read and write in progress give up within 100 ms, and every later one fail at once, until the
/// next uartOpen; throws away output that the peer has not taken. Any thread.
void uartAbandon();

/// Ends exclusive use and closes the line, after the reads and writes in progress have given it up; unsent
/// output is thrown away, because the kernel would otherwise wait up to 30 s for a peer that holds CTS.
/// @return what close() returned; -1 when no line is open
std::int32_t uartClose();
