#pragma once

#include <sys/types.h>

#include <span>

/// A firmware image, opened for one transfer. Closes and unmaps on destruction.
class ImageFile
{
public:
    ImageFile() = default;
    ~ImageFile();
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    /// Opens and maps the file; to be called once. Anything but a regular file is refused without waiting for
    /// a peer (a FIFO, a terminal). An empty file, or one that cannot be mapped, is opened nevertheless.
    /// @return 0; -EINVAL when it is no regular file; or another negative errno
    [[nodiscard]] int open(const char* path);
    [[nodiscard]] bool isOpen() const { return m_descriptor >= 0; }

    /// Bytes in the file when it was opened.
    [[nodiscard]] off_t size() const { return m_size; }

    /// Copies bytes of the file.
    /// @param position offset of the first byte
    /// @return 0; -ENODATA when the file has become shorter than that; or another negative errno
    [[nodiscard]] int read(off_t position, std::span<unsigned char> bytes) const;

private:
    [[nodiscard]] int map();

    int m_descriptor = -1;
    off_t m_size = 0;
    void* m_mapping = nullptr;
    std::size_t m_mappedSize = 0;
};
