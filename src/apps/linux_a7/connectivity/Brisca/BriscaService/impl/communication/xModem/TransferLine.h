#pragma once

#include "UploadProgress.h"

#include <span>

/// The serial line of one transfer: blocking reads and writes that another thread or a time-out can end.
/// The descriptor is put into non-blocking mode for the life of the object, because a write that blocks on a
/// stopped line cannot be ended from outside.
class TransferLine
{
public:
    /// @param progress         is told of every byte received
    /// @param cancelDescriptor readable when the transfer is to end; -1 for none
    /// @param timeoutMs        longest wait of each operation for the line; -1 for no limit
    TransferLine(int descriptor, UploadProgress& progress, int cancelDescriptor, int timeoutMs = -1);
    ~TransferLine();
    TransferLine(const TransferLine&) = delete;
    TransferLine& operator=(const TransferLine&) = delete;

    /// Writes all bytes; waits for a line that does not take them.
    /// @return 0, -ECANCELED, -ETIMEDOUT, or another negative errno
    [[nodiscard]] int send(std::span<const unsigned char> bytes);
    /// Waits for one byte.
    /// @return 0, -ECANCELED, -ETIMEDOUT, or another negative errno (-EIO when the line was hung up)
    [[nodiscard]] int receive(unsigned char& byte);

private:
    [[nodiscard]] int waitFor(short events);

    int m_descriptor;
    UploadProgress& m_progress;
    int m_cancelDescriptor;
    int m_timeoutMs;
    int m_flags;
};
