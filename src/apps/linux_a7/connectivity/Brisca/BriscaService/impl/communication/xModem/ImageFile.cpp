#include "ImageFile.h"

#include "Failure.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

ImageFile::~ImageFile()
{
    if (m_mapping != nullptr)
        ::munmap(m_mapping, m_mappedSize);
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

int ImageFile::open(const char* path)
{
    errno = 0;
    m_descriptor = ::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat status = {};
    if (m_descriptor < 0 || ::fstat(m_descriptor, &status) != 0)
        return failure();
    if (!S_ISREG(status.st_mode))
        return -EINVAL;
    m_size = status.st_size;
    return map();
}

// The mapping lets the kernel read the whole image ahead while the receiver is still waited for, and it is
// never touched: the page behind the end of a file that somebody shortens meanwhile is a SIGBUS for the whole
// service, and the rest of its last page reads as zeros, which would be programmed into the chip. So the
// blocks are copied by pread(), which tells.
int ImageFile::map()
{
    errno = 0;
    void* const mapping =
        ::mmap(nullptr, static_cast<std::size_t>(m_size), PROT_READ, MAP_PRIVATE, m_descriptor, 0);
    if (mapping == nullptr) {
        std::perror("mmap");
        return failure();
    }
    if (mapping == MAP_FAILED)
        return 0;
    m_mapping = mapping;
    m_mappedSize = static_cast<std::size_t>(m_size);
    ::madvise(m_mapping, m_mappedSize, MADV_WILLNEED);
    return 0;
}

int ImageFile::read(off_t position, std::span<unsigned char> bytes) const
{
    errno = 0;
    const ssize_t got = TEMP_FAILURE_RETRY(::pread(m_descriptor, bytes.data(), bytes.size(), position));
    if (got < 0)
        return failure();
    return got == static_cast<ssize_t>(bytes.size()) ? 0 : -ENODATA;
}
