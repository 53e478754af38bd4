#pragma once

#include <cerrno>
#include <cstdio>

/// The result of the system call that has just failed. A call that came up short without an error leaves
/// errno at the 0 that it was set to before; that is an input/output error and never a success.
[[nodiscard]] inline int failure()
{
    if (errno == 0)
        errno = EIO;
    return -errno;
}

/// The same, named on standard error.
[[nodiscard]] inline int failure(const char* call)
{
    const int result = failure();
    std::perror(call);
    return result;
}
