#include "facade/LogEvent.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {
// The columns of the output line.
constexpr int kLineSize = 1024;
constexpr int kTextLimit = 1022;  // the line feed and the terminator follow
constexpr int kSourceColumn = 10;
constexpr int kNodeColumn = 42;
constexpr int kRootPrefixLength = 7;  // "GLOBAL."

/// Puts spaces behind a field that ended before its column does.
void padTo(char* line, int from, int column)
{
    if (from < column)
        std::memset(line + from, ' ', static_cast<std::size_t>(column - from));
}

int boundedLength(const char* line)
{
    return static_cast<int>(strnlen(line, kTextLimit));
}

void writeExpanded(const char* text, const char* end)
{
    while (text != end) {
        const char* mark =
            static_cast<const char*>(std::memchr(text, '%', static_cast<std::size_t>(end - text)));
        const char* const plainEnd = mark == nullptr ? end : mark;
        fwrite_unlocked(text, 1, static_cast<std::size_t>(plainEnd - text), stdout);
        if (mark == nullptr)
            return;
        const char next = mark + 1 == end ? '\0' : mark[1];
        if (next == 'm')
            fputs_unlocked(std::strerror(errno), stdout);
        else
            putc_unlocked('%', stdout);
        text = mark + (next == 'm' || next == '%' ? 2 : 1);
    }
}
}  // namespace

void log_event(const LogNode& node, LogLevel level, const char* file, int line, const char* function,
               const char* format, ...)
{
    const int savedErrno = errno;
    char buffer[kLineSize] = {};
    padTo(buffer, timestamp(buffer, kTextLimit), kSourceColumn);
    const int source = std::snprintf(buffer + kSourceColumn, kTextLimit - kSourceColumn,
                                     "%-25s:%04d: ", filename(file), line);
    padTo(buffer, kSourceColumn + source, kNodeColumn);
    std::snprintf(buffer + kNodeColumn, kTextLimit - kNodeColumn, "<%-5s> [%s] ", level_to_string(level),
                  node.fullName() + (node.parent() != nullptr ? kRootPrefixLength : 0));
    int position = boundedLength(buffer);
    if (function != nullptr) {
        std::snprintf(buffer + position, static_cast<std::size_t>(kTextLimit - position), "%s() ", function);
        position = boundedLength(buffer);
    }
    errno = savedErrno;  // the caller's format may say %m
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer + position, static_cast<std::size_t>(kTextLimit - position), format, arguments);
    va_end(arguments);
    position = boundedLength(buffer);
    buffer[position] = '\n';
    buffer[position + 1] = '\0';
    errno = savedErrno;
    log_event(level, buffer, position + 1);
    errno = savedErrno;
}

void log_event(LogLevel, const char* text, int length)
{
    flockfile(stdout);
    writeExpanded(text, text + length);
    fflush_unlocked(stdout);
    funlockfile(stdout);
}

void log_syslog(const char*) {}

const char* filename(const char* path)
{
    const char* const slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

LogTime getTime()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return {static_cast<long>(now.tv_sec), now.tv_nsec / 1000};
}

LogTime getTimestamp()
{
    static const LogTime start = getTime();
    const LogTime now = getTime();
    LogTime elapsed = {now.seconds - start.seconds, now.microseconds - start.microseconds};
    if (elapsed.microseconds < 0) {
        --elapsed.seconds;
        elapsed.microseconds += 1000000;
    }
    return elapsed;
}

int timestamp(char* dst, int size)
{
    const LogTime elapsed = getTimestamp();
    return std::snprintf(dst, static_cast<std::size_t>(size), "%04u.%04u",
                         static_cast<unsigned>(elapsed.seconds),
                         static_cast<unsigned>(elapsed.microseconds / 100));
}
