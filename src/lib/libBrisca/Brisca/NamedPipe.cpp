#include "NamedPipe.h"

#include "facade/Log.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

BRISCA_LOG_NODE(logNode, "Brisca");

namespace {
constexpr mode_t kPipeMode = 0666;
constexpr int kOpenFlags = O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW;
constexpr std::size_t kDrainChunkSize = 512;

/// Opens a FIFO; anything else gives -1 with errno set.
int openFifo(const char* path)
{
    const int descriptor = ::open(path, kOpenFlags);
    if (descriptor == -1)
        return -1;
    struct stat status = {};
    if (::fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode))
        return descriptor;
    ::close(descriptor);
    errno = ENOTSUP;
    return -1;
}
}  // namespace

NamedPipe::~NamedPipe()
{
    if (m_handle != -1)
        ::close(m_handle);
}

bool NamedPipe::make(const char* path)
{
    m_made = ::mkfifo(path, kPipeMode) == 0;
    if (m_made)
        return true;
    if (errno == EEXIST) {
        BRISCA_INFO(logNode, "Device %s Already exist", m_wording.direction);
        return true;
    }
    BRISCA_INFO(logNode, "Device Error Pipe %s creation: %d", m_wording.creation, errno);
    return false;
}

bool NamedPipe::isOpenAt(const char* path) const
{
    struct stat ours = {};
    struct stat there = {};
    return m_handle != -1 && ::fstat(m_handle, &ours) == 0 && ::lstat(path, &there) == 0 &&
           ours.st_dev == there.st_dev && ours.st_ino == there.st_ino;
}

void NamedPipe::adopt(int descriptor)
{
    if (m_handle == -1) {
        m_handle = descriptor;
        return;
    }
    ::dup3(descriptor, m_handle, O_CLOEXEC);
    ::close(descriptor);
}

bool NamedPipe::open(const char* path)
{
    if (!isOpenAt(path)) {
        BRISCA_NOTIC(logNode, "Open %s pipe", m_wording.direction);
        const int descriptor = openFifo(path);
        if (descriptor == -1) {
            BRISCA_ERROR(logNode, "%s cannot be used as a named pipe: %s", path,
                         errno == ENOTSUP ? "it is something else" : std::strerror(errno));
            return false;
        }
        if (m_made)
            ::fchmod(descriptor, kPipeMode);
        adopt(descriptor);
    }
    BRISCA_DEBUG(logNode, "handle %s %d", m_wording.handle, m_handle);
    return true;
}

std::size_t NamedPipe::waiting() const
{
    int count = 0;
    return ::ioctl(m_handle, FIONREAD, &count) == -1 ? 0 : static_cast<std::size_t>(std::max(count, 0));
}

std::size_t NamedPipe::drain()
{
    // No more than what waits now: a writer that never stops must not keep the caller here.
    const std::size_t total = waiting();
    std::array<std::uint8_t, kDrainChunkSize> chunk;
    std::size_t drained = 0;
    while (drained < total) {
        const ssize_t count = read(std::span(chunk).first(std::min(chunk.size(), total - drained)));
        if (count <= 0)
            break;
        drained += static_cast<std::size_t>(count);
    }
    return drained;
}

ssize_t NamedPipe::read(std::span<std::uint8_t> buffer)
{
    return ::read(m_handle, buffer.data(), buffer.size());
}

ssize_t NamedPipe::write(std::span<const std::uint8_t> bytes)
{
    return ::write(m_handle, bytes.data(), bytes.size());
}
