#pragma once

#include "UniqueFd.h"

#include <string>
#include <string_view>
#include <vector>

namespace testsupport {
/// Collects what the process writes to standard output (or another descriptor) while the object lives;
/// may be read at any time, also while other threads write.
class StdoutCapture
{
public:
    explicit StdoutCapture(int target = STDOUT_FILENO);
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    [[nodiscard]] std::string text() const;
    /// Lines without their line feeds.
    [[nodiscard]] std::vector<std::string> lines() const;
    /// Lines of the log from their level on, e.g. "<WARN > [LinuxOutputPin] text".
    [[nodiscard]] std::vector<std::string> logLines() const;
    /// How many lines contain this text.
    [[nodiscard]] int count(std::string_view text) const;
    [[nodiscard]] bool contains(std::string_view text) const { return count(text) > 0; }
    /// Forgets what has been collected so far.
    void clear();

private:
    int m_target;
    UniqueFd m_file;
    UniqueFd m_saved;
    std::size_t m_start = 0;
};
}  // namespace testsupport
