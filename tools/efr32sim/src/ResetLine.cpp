#include "ResetLine.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace efr32sim {
void ResetLine::open()
{
    if (m_path.empty())
        return;
    m_made = ::mkfifo(m_path.c_str(), 0666) == 0;
    if (!m_made && errno != EEXIST)
        throw std::system_error(errno, std::generic_category(), m_path);
    // Read-write: the host's open never waits for a reader, and its close is no end of file here.
    m_fd = ownOrThrow(::open(m_path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC), m_path.c_str());
    struct stat status
    {
    };
    if (::fstat(m_fd.get(), &status) != 0 || !S_ISFIFO(status.st_mode)) {
        m_fd.reset();
        throw std::system_error(ENXIO, std::generic_category(), m_path + " is no FIFO");
    }
}

void ResetLine::close()
{
    m_fd.reset();
    if (m_made)
        ::unlink(m_path.c_str());
    m_made = false;
}

std::string ResetLine::read()
{
    std::string levels;
    std::array<char, 64> buffer{};
    ssize_t size = 0;
    while (m_fd && (size = ::read(m_fd.get(), buffer.data(), buffer.size())) > 0) {
        for (ssize_t i = 0; i < size; ++i) {
            const char level = buffer[static_cast<std::size_t>(i)];
            if (level == '0' || level == '1')
                levels += level;
        }
    }
    return levels;
}
}  // namespace efr32sim
