#include "TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace testsupport {
TempDir::TempDir()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "brisca-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    m_path = pattern;
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string TempDir::file(std::string_view name) const
{
    return m_path + "/" + std::string(name);
}

std::string TempDir::write(std::string_view name, std::string_view content) const
{
    std::ofstream(file(name), std::ios::binary) << content;
    return file(name);
}

std::string readFile(const std::string& path)
{
    const std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

std::string content(std::size_t size)
{
    std::string result(size, '\0');
    for (std::size_t at = 0; at < size; ++at)
        result[at] = static_cast<char>(at * 7 + at / 251);
    return result;
}

std::size_t entriesOf(const char* directory)
{
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}
}  // namespace testsupport
