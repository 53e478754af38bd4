#pragma once

#include <QString>

/// How the tool ends. The values are part of its interface, see its manual.
enum class Exit : int {
    Done = 0,
    Failed = 1,
    Usage = 2,
    WrongState = 3,
    AccessDenied = 4,
    NoService = 5,
    TimeOut = 6,
    FileRefused = 7,
};

/// Ends a verb: thrown where the cause is known, caught by main().
struct Failure
{
    Exit code;
    QString text;  ///< one line: what has failed, and what to do
};
