#pragma once

#include <string>
#include <string_view>

namespace testsupport {
/// A directory of its own for one test, removed with everything in it.
class TempDir
{
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] std::string file(std::string_view name) const;
    /// Writes a file into the directory and returns its path.
    std::string write(std::string_view name, std::string_view content) const;

private:
    std::string m_path;
};

/// The whole content of a file; empty when it cannot be read.
std::string readFile(const std::string& path);

/// Content of a file, which repeats itself after 64,256 bytes only.
std::string content(std::size_t size);

/// How many entries a directory has: with /proc/self/fd the open descriptors, with /proc/self/task the
/// threads.
std::size_t entriesOf(const char* directory);
}  // namespace testsupport
