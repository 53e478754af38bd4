#pragma once

#include <cerrno>

/// The result of the system call that has just failed. A call that came up short without an error leaves
/// errno at the 0 that it was set to before; that is an input/output error and never a success.
[[nodiscard]] inline int failure()
{
    if (errno == 0)
        errno = EIO;
    return -errno;
}
