#pragma once

/// When another party sets this, readConf() stores the cleaned configuration text here, NUL-terminated.
/// The buffer must hold the whole text. Null, and left null, in this service.
extern char* LOG_SHARED_MEMORY_CONF_PTR;

/// Reader of the log configuration: lines "node:level", '#' starts a comment, the last line that covers a
/// node wins.
class LogConf
{
public:
    /// Reads and applies "/evse/data/log.cfg". A file that cannot be opened gets one ERROR line and leaves
    /// every level as it is; a malformed line is skipped. Main thread, before any task runs.
    static void readConf();
    /// The same for another file.
    static void readConf(const char* path);

    /// Removes spaces, tabs and the comment from a line in place; a comment leaves a line feed behind.
    /// @return the new length
    static int cleanLine(char* line);
};
