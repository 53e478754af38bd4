#pragma once

#include "UniqueFd.h"

#include <chrono>
#include <string>
#include <string_view>

namespace testsupport {
void writeTo(int fd, std::string_view bytes);
/// Reads until @p count bytes came, or nothing waits and @p limit has passed; returns what came.
[[nodiscard]] std::string readFrom(int fd, std::size_t count, std::chrono::milliseconds limit);

/// A pseudo-terminal: the test plays the chip on the master side, the code under test opens slavePath().
class Pty
{
public:
    Pty();

    [[nodiscard]] const std::string& slavePath() const { return m_slavePath; }
    [[nodiscard]] int master() const { return m_master.get(); }
    /// The line behind the back of the code under test.
    [[nodiscard]] int slave() const { return m_keepSlave.get(); }

    /// Writes all bytes to the code under test.
    void write(std::string_view bytes) const { writeTo(master(), bytes); }
    [[nodiscard]] std::string read(std::size_t count,
                                   std::chrono::milliseconds limit = std::chrono::seconds(30)) const
    {
        return readFrom(master(), count, limit);
    }
    /// Reads what is waiting now, without blocking.
    [[nodiscard]] std::string readAvailable() const;
    /// Waits until something that was written lies before the code under test.
    [[nodiscard]] bool hasArrived() const;
    /// Hangs the line up: the slave side sees end of file from now on.
    void hangUp();

private:
    UniqueFd m_master;
    UniqueFd m_keepSlave;  // an open slave keeps the master from reporting EIO between two opens
    std::string m_slavePath;
};
}  // namespace testsupport
