#pragma once

#include "node/LogNodeFactory.h"

/// Entry points to the process-wide log tree.
class LogFacade
{
public:
    /// The root of the tree, built on first use by whichever static initialiser comes first. It is destroyed
    /// at process exit when no other thread is left; threads that still run may log until the very end. Any
    /// thread.
    static LogNodeFactory& inst();

    /// Sets the level of a node and its subtree, creating the node when it does not exist yet.
    static void setLevel(const char* name, LogLevel level);
    /// Applies one cleaned configuration line "name:level"; the level may be followed by a line end.
    /// @return false, with nothing applied, when the line has no colon
    static bool setLevel(const char* line);
    /// Logs the subtree below the named node; an unknown name gets one ERROR line.
    static void printTree(const char* name);
};
