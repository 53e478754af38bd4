#include "StdoutCapture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace testsupport {
namespace {
constexpr std::size_t kLevelColumn = 42;

std::size_t sizeOf(int fd)
{
    struct stat status = {};
    return ::fstat(fd, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}
}  // namespace

StdoutCapture::StdoutCapture(int target)
    : m_target(target),
      m_file(::memfd_create("capture", MFD_CLOEXEC)),
      m_saved(::fcntl(target, F_DUPFD_CLOEXEC, 3))
{
    std::fflush(stdout);
    ::fcntl(m_file.get(), F_SETFL, O_APPEND);
    ::dup2(m_file.get(), m_target);
}

StdoutCapture::~StdoutCapture()
{
    std::fflush(stdout);
    ::dup2(m_saved.get(), m_target);
}

std::string StdoutCapture::text() const
{
    std::fflush(stdout);
    std::string content(sizeOf(m_file.get()) - m_start, '\0');
    const ssize_t got = ::pread(m_file.get(), content.data(), content.size(), static_cast<off_t>(m_start));
    content.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return content;
}

std::vector<std::string> StdoutCapture::lines() const
{
    std::istringstream in(text());
    std::vector<std::string> result;
    for (std::string line; std::getline(in, line);)
        result.push_back(line);
    return result;
}

std::vector<std::string> StdoutCapture::logLines() const
{
    std::vector<std::string> result;
    for (const std::string& line : lines()) {
        if (line.size() > kLevelColumn && line[kLevelColumn] == '<')
            result.push_back(line.substr(kLevelColumn));
    }
    return result;
}

int StdoutCapture::count(std::string_view wanted) const
{
    const auto all = lines();
    return static_cast<int>(std::count_if(all.begin(), all.end(), [&](const std::string& line) {
        return line.find(wanted) != std::string::npos;
    }));
}

void StdoutCapture::clear()
{
    std::fflush(stdout);
    m_start = sizeOf(m_file.get());
}
}  // namespace testsupport
