#include "facade/LogEvent.h"

#include "facade/LineBuilder.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

namespace {
// The columns of the output line, counted from 0.
constexpr std::size_t kSourceColumn = 10;
constexpr std::size_t kSourceNameWidth = 25;
constexpr std::size_t kLevelColumn = 42;
constexpr std::size_t kLevelWidth = 5;
constexpr std::size_t kRootPrefixLength = 7;  // "GLOBAL."
constexpr long kMicrosecondsPerSecond = 1000000;
constexpr long kMicrosecondsPerTick = 100;

void appendTimestamp(LineBuilder& out)
{
    const LogTime elapsed = getTimestamp();
    out.appendNumber(static_cast<unsigned>(elapsed.seconds));
    out.append(".");
    out.appendNumber(static_cast<unsigned>(elapsed.microseconds / kMicrosecondsPerTick));
}

/// Elapsed time and source position: both fields end at fixed columns, whatever their texts' lengths.
void appendPosition(LineBuilder& out, std::string_view file, int line)
{
    out.setLimit(kLevelColumn);
    appendTimestamp(out);
    out.padTo(kSourceColumn);
    out.seek(kSourceColumn);
    out.append(file);
    out.padTo(kSourceColumn + kSourceNameWidth);
    out.append(":");
    out.appendNumber(static_cast<unsigned>(line));
    out.append(": ");
    out.padTo(kLevelColumn);
    out.setLimit(LineBuilder::kTextLimit);
}

void appendNode(LineBuilder& out, const LogNode& node, LogLevel level)
{
    std::string_view name(node.fullName(), static_cast<std::size_t>(node.fullNameLength()));
    if (node.parent() != nullptr)
        name.remove_prefix(kRootPrefixLength);
    out.append("<");
    out.append(level_to_string(level));
    out.padTo(kLevelColumn + 1 + kLevelWidth);
    out.append("> [");
    out.append(name);
    out.append("] ");
}

void write(const char* text, const char* end)
{
    fwrite_unlocked(text, 1, static_cast<std::size_t>(end - text), stdout);
}

// The finished text is a format once more: part of the interface. Only the two conversions that take no
// argument are honoured, because the text may hold a file name or a phone's words.
void writeExpanded(const char* text, const char* end)
{
    const int error = errno;
    while (const auto* mark =
               static_cast<const char*>(std::memchr(text, '%', static_cast<std::size_t>(end - text)))) {
        const char conversion = mark + 1 == end ? '\0' : mark[1];
        if (conversion == 'm') {
            char reason[128];
            write(text, mark);
            fputs_unlocked(strerror_r(error, reason, sizeof reason), stdout);
        } else {
            write(text, mark + 1);
        }
        text = mark + (conversion == 'm' || conversion == '%' ? 2 : 1);
    }
    write(text, end);
}
}  // namespace

// NOLINTNEXTLINE(cert-dcl50-cpp): printf's own form, so that the compiler checks every statement's arguments
void log_event(const LogNode& node, LogLevel level, const char* file, int line, const char* function,
               const char* format, ...)
{
    const int savedErrno = errno;
    LineBuilder out;
    appendPosition(out, filename(file), line);
    appendNode(out, node, level);
    if (function != nullptr) {
        out.append(function);
        out.append("() ");
    }
    errno = savedErrno;  // the caller's format may say %m
    va_list arguments;
    va_start(arguments, format);
    out.appendFormatted(format, arguments);
    va_end(arguments);
    out.endLine();
    errno = savedErrno;
    log_event(level, out.text().data(), static_cast<int>(out.text().size()));
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
        elapsed.microseconds += kMicrosecondsPerSecond;
    }
    return elapsed;
}

int timestamp(char* dst, int size)
{
    LineBuilder out;
    appendTimestamp(out);
    return std::snprintf(dst, static_cast<std::size_t>(size), "%.*s", static_cast<int>(out.text().size()),
                         out.text().data());
}
