#pragma once

#include "UploadProgress.h"

/// Sends a file by XMODEM with 128-byte blocks and CRC-16 over a serial line that is open and configured
/// (VMIN 1). The line has no other user until the call returns; it may be called on any thread.
///
/// There is no time limit: each wait ends by a byte from the receiver or by a failure of the line, and a
/// block is sent again for as long as the receiver asks for it. 56 answers other than ACK, NAK and 0x00,
/// without an ACK or NAK between them, end the transfer.
///
/// @param descriptor      the line
/// @param path            the file; only a regular file is sent
/// @param waitForReceiver true skips what the receiver says until it asks for the transfer with 'C'
/// @return 0 when the last block was acknowledged and the end of the transfer was sent; a negative errno when
///         a system call failed (-EIO when it came up short without an error, which is how a hung-up line and
///         a file that has become shorter show); -1 when the transfer was abandoned
[[nodiscard]] int xymodem_send(int descriptor, const char* path, bool waitForReceiver);

/// The same, and another thread can end it.
/// @param progress         is kept up to date for other threads
/// @param cancelDescriptor pollable descriptor; as soon as it is readable the transfer ends, also while it
///                         waits for the receiver or for a stopped line, and what the line has not sent yet
///                         is dropped. -1 for none.
/// @return as above; -ECANCELED when it was ended so
[[nodiscard]] int xymodem_send(int descriptor, const char* path, bool waitForReceiver,
                               UploadProgress& progress, int cancelDescriptor);
