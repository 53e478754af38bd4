#pragma once

#include "ByteStreamI.h"

#include <cstddef>

/// One named pipe (FIFO), opened for reading and writing and non-blocking, so that the bridge neither blocks
/// on it nor ever sees its other side vanish. Not locked.
class NamedPipe : public ByteStreamI
{
public:
    /// How the log names it.
    struct Wording
    {
        const char* direction;  ///< "Tx"
        const char* creation;   ///< "tx"
        const char* handle;     ///< "write"
    };

    explicit NamedPipe(const Wording& wording) : m_wording(wording) {}
    ~NamedPipe() override;
    NamedPipe(const NamedPipe&) = delete;
    NamedPipe& operator=(const NamedPipe&) = delete;

    /// Makes the FIFO unless something exists at the path; one that is made may be used by everybody,
    /// whatever the umask is, because the application may run under a user of its own.
    /// @return false, with an INFO line, when it cannot be made
    [[nodiscard]] bool make(const char* path);
    /// Opens the FIFO, and nothing else that may lie at the path. A descriptor of the same FIFO that is open
    /// already stays; one of a FIFO that is no longer at the path is replaced under its number.
    /// @return false, with an ERROR line, when there is no FIFO or it cannot be opened
    [[nodiscard]] bool open(const char* path);
    /// Bytes that can be read now.
    [[nodiscard]] std::size_t waiting() const;
    /// Throws away what is waiting now.
    /// @return bytes thrown away
    std::size_t drain();

    [[nodiscard]] ssize_t read(std::span<std::uint8_t> buffer) override;
    [[nodiscard]] ssize_t write(std::span<const std::uint8_t> bytes) override;
    /// The descriptor, -1 before the first open().
    [[nodiscard]] int handle() const { return m_handle; }

private:
    [[nodiscard]] bool isOpenAt(const char* path) const;
    void adopt(int descriptor);

    const Wording m_wording;
    int m_handle = -1;
    bool m_made = false;
};
