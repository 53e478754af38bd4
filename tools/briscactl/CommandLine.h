#pragma once

#include "Report.h"

#include <QCommandLineParser>
#include <QDeadlineTimer>
#include <QString>
#include <QStringList>

#include <vector>

/// What a verb works with.
struct Command
{
    const QCommandLineParser& line;  // for the verb's own options
    QString argument;                // empty when the verb has none
    QString busAddress;              // empty for the system bus
    QDeadlineTimer deadline;
    Report report;
};

struct Option
{
    const char* name;
    const char* value;  // name of its value, "" for a switch
    const char* summary;
};

/// One thing that the tool can do.
struct Verb
{
    const char* name;      // may consist of two words
    const char* argument;  // "" for none; in brackets when it may be left out
    const char* summary;
    int timeoutS;  // 0 for none
    void (*run)(Command&);
    std::vector<Option> options;
};

/// Reads the words behind the program's name, answers --help and --version, or runs a verb.
/// Throws a Failure.
void runCommandLine(const QStringList& words);

// The verbs, by subject.
void showStatus(Command& command);
void showFirmware(Command& command);
void showMac(Command& command);
void showHealth(Command& command);
void start(Command& command);
void enable(Command& command);
void disable(Command& command);
void restart(Command& command);
void rename(Command& command);
void disconnectPhone(Command& command);
void update(Command& command);
void monitor(Command& command);
void checkLog(Command& command);
