#include "Pty.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

namespace testsupport {
// Not blocking, because two threads may read: what the one saw coming the other may have taken.
Pty::Pty() : m_master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK))
{
    char name[64];
    if (::grantpt(m_master.get()) != 0 || ::unlockpt(m_master.get()) != 0 ||
        ::ptsname_r(m_master.get(), name, sizeof name) != 0)
        throw std::runtime_error("no pseudo-terminal");
    m_slavePath = name;
    m_keepSlave = UniqueFd(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios raw = {};
    ::tcgetattr(m_keepSlave.get(), &raw);
    ::cfmakeraw(&raw);
    ::tcsetattr(m_keepSlave.get(), TCSANOW, &raw);
}

void writeTo(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t done = ::write(fd, bytes.data(), bytes.size());
        pollfd entry = {fd, POLLOUT, 0};
        if (done < 0 && errno == EAGAIN && ::poll(&entry, 1, -1) > 0)
            continue;
        if (done <= 0)
            throw std::runtime_error("write to a line failed");
        bytes.remove_prefix(static_cast<std::size_t>(done));
    }
}

std::string readFrom(int fd, std::size_t count, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    std::string result;
    while (result.size() < count) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd entry = {fd, POLLIN, 0};
        if (::poll(&entry, 1, std::max(0, static_cast<int>(left.count()))) <= 0)
            break;
        char buffer[4096];
        const ssize_t got = ::read(fd, buffer, std::min(sizeof buffer, count - result.size()));
        if (got < 0 && errno == EAGAIN)
            continue;
        if (got <= 0)
            break;
        result.append(buffer, static_cast<std::size_t>(got));
    }
    return result;
}

std::string Pty::readAvailable() const
{
    return read(1 << 20, std::chrono::milliseconds(1));
}

bool Pty::hasArrived() const
{
    pollfd arrival = {slave(), POLLIN, 0};
    return ::poll(&arrival, 1, 30'000) == 1;
}

void Pty::hangUp()
{
    m_master.reset();
}
}  // namespace testsupport
