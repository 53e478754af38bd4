#pragma once

/// Severity of a log statement and threshold of a log node; a smaller number is more severe.
enum class LogLevel : int {
    None = 0,
    Emerg = 1,
    Fatal = 2,
    Crit = 3,
    Error = 4,
    Warn = 5,
    Notic = 6,
    Info = 7,
    Debug = 8,
    Trace = 9,
};

/// Name of a level as it stands in the output line ("NONE" to "TRACE"; at most five characters).
/// Only the ten enumerators are valid arguments.
const char* level_to_string(LogLevel level);

/// Level named by NUL-terminated configuration text. A leading digit counts by its value ("12" is 1);
/// otherwise the first level in ascending order that level_strcmp() accepts; LogLevel::None when none does.
LogLevel level_from_string(const char* text);

/// Whether the text names a level, or level_from_string() gives LogLevel::None for want of one.
bool is_level(const char* text);

/// 0 when the words agree up to the end of the shorter one, non-zero otherwise. Case-sensitive.
/// So "NOTICE" and "WARNING\n" match their five-letter table words, and "D" matches "DEBUG".
int level_strcmp(const char* tableWord, const char* text);
