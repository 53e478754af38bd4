#pragma once

#include "UploadProgress.h"

#include <string>

class ImageFile;

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
///         a system call failed (-EIO when it came up short without an error, which is how a hung-up line
///         shows; -ENODATA for a file that has become shorter); -1 when the transfer was abandoned
[[nodiscard]] int xymodem_send(int descriptor, const char* path, bool waitForReceiver);

/// The same, and another thread can end it.
/// @param image            sent as it is when it is open; otherwise @p path is opened
/// @param progress         is kept up to date for other threads
/// @param cancelDescriptor pollable descriptor; as soon as it is readable the transfer ends, also while it
///                         waits for the receiver or for a stopped line, and what the line has not sent yet
///                         is dropped. -1 for none.
/// @return as above; -ECANCELED when it was ended so
[[nodiscard]] int xymodem_send(int descriptor, const char* path, bool waitForReceiver, ImageFile& image,
                               UploadProgress& progress, int cancelDescriptor);

/// Ends the receiver of a transfer that its sender has given up, with two CAN, and collects what it says to
/// that until the line is quiet; for 2 s or 4096 bytes at most.
/// @param said    grows by what the receiver says
/// @param quietMs silence that ends the collecting
/// @return 0, -ECANCELED, or another negative errno
[[nodiscard]] int xymodem_cancel(int descriptor, std::string& said, int quietMs, UploadProgress& progress,
                                 int cancelDescriptor);
