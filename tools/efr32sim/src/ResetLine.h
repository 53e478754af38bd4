#pragma once

#include "Fd.h"

#include <string>

namespace efr32sim {
/// The reset line as a FIFO that the host writes '0' and '1' into. Not thread-safe.
class ResetLine
{
public:
    explicit ResetLine(std::string path) : m_path(std::move(path)) {}
    ~ResetLine() { close(); }
    ResetLine(const ResetLine&) = delete;
    ResetLine& operator=(const ResetLine&) = delete;

    /// Makes the FIFO unless it is there, and opens it; throws std::system_error. Nothing without a path.
    void open();
    /// Removes the FIFO if open() made it.
    void close();
    [[nodiscard]] int fd() const { return m_fd.get(); }
    /// The levels that have arrived, '0' and '1' in order; other bytes are left out.
    [[nodiscard]] std::string read();

private:
    std::string m_path;
    Fd m_fd;
    bool m_made = false;
};
}  // namespace efr32sim
