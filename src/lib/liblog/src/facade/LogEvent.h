#pragma once

#include "node/LogNode.h"

/// Seconds and microseconds of a monotonic clock.
struct LogTime
{
    long seconds;
    long microseconds;
};

/// Formats one column-aligned line and hands it to the sink. The caller has tested the node's level already
/// (the BRISCA_* macros of Log.h do). Any thread; no heap; errno is preserved.
/// @param file     source path, of which only the base name is printed
/// @param function printed as "name() " in front of the message; null prints nothing
void log_event(const LogNode& node, LogLevel level, const char* file, int line, const char* function,
               const char* format, ...) __attribute__((format(printf, 6, 7)));

/// The sink: writes finished text to standard output and flushes it. Any thread; lines never interleave.
/// "%%" and "%m" are interpreted a second time here; every other '%' is printed as it stands.
void log_event(LogLevel level, const char* text, int length);

/// A sink for the system log that does nothing.
void log_syslog(const char* text);

/// The part of a path behind its last '/'.
const char* filename(const char* path);

/// Now on CLOCK_MONOTONIC_RAW.
LogTime getTime();

/// Time elapsed since the first call in this process.
LogTime getTimestamp();

/// Writes the elapsed time as "%04u.%04u": seconds, and the fraction in units of 100 us.
/// @param size bytes in @p dst, terminator included
/// @return what snprintf returned
int timestamp(char* dst, int size);
