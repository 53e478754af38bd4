#pragma once

#include <string>
#include <vector>

/// When another party sets this, readConf() stores the cleaned configuration text here, NUL-terminated.
/// The buffer must hold the whole text. Null, and left null, in this service.
extern char* LOG_SHARED_MEMORY_CONF_PTR;

/// Reader of the log configuration: lines "node:level", '#' starts a comment, the last line that covers a
/// node wins.
class LogConf
{
public:
    /// Reads and applies "/evse/data/log.cfg". A file that cannot be opened or read gets one ERROR line; a
    /// line without colon is skipped; a word that is no level gets one ERROR line and counts as NONE. One
    /// ERROR line, too, where the reading ends early: after 4000 lines (or pieces of 254 bytes of longer
    /// ones) or with the line that brings more than 1000 nodes into being. Main thread, before any task runs.
    static void readConf();
    /// The same for another file.
    static void readConf(const char* path);

    /// What somebody should correct in a file: lines without a colon, words that are no level, names that
    /// match no node there is, one text each with the number of its line ("line 3: ..."). Nothing is applied.
    /// To be asked before readConf(), which makes a node of every name.
    [[nodiscard]] static std::vector<std::string> check(const char* path);

    /// Removes spaces, tabs and the comment from a line in place; a comment leaves a line feed behind.
    /// @return the new length
    static int cleanLine(char* line);
};
