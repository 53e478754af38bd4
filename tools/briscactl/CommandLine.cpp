#include "CommandLine.h"

#include "Failure.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <span>

namespace {
const Verb kVerbs[] = {
    {"status", "", "show the state of the station on one screen", 30, showStatus, {}},
    {"start", "", "start the chip's firmware: from BOOTLOADER to FIRMWARE", 60, start, {}},
    {"enable", "", "enable Bluetooth: from DISABLED to FIRMWARE", 60, enable, {}},
    {"disable", "", "disable Bluetooth: from FIRMWARE to DISABLED", 60, disable, {}},
    {"restart",
     "",
     "reset the chip: enters FIRMWARE anew, from elsewhere BOOTLOADER",
     60,
     restart,
     {{"wait", "STATE", "wait until the service is in STATE"}}},
    {"firmware",
     "",
     "print the information text of the chip's firmware (in BOOTLOADER)",
     30,
     showFirmware,
     {}},
    {"mac", "", "print the BLE MAC address (in FIRMWARE)", 30, showMac, {}},
    {"name", "TEXT", "set the BLE name, 1 to 29 bytes, for the next start (in BOOTLOADER)", 30, rename, {}},
    {"disconnect", "", "drop the connected phone (in FIRMWARE)", 30, disconnectPhone, {}},
    {"update",
     "FILE",
     "update the chip's firmware from FILE and wait for the end",
     900,
     update,
     {{"start", "", "start the firmware after the update"},
      {"name", "TEXT", "set the BLE name for the next start"},
      {"yes", "", "do not ask before a phone is dropped"}}},
    {"monitor", "", "print signals and changes of state as they come", 0, monitor, {}},
    {"health",
     "",
     "tell by the exit code whether the station works, for cron and agents",
     30,
     showHealth,
     {}},
    {"log check", "[FILE]", "check a log configuration, /evse/data/log.cfg by default", 30, checkLog, {}},
};

const Option kGlobalOptions[] = {
    {"json", "", "print one JSON object; monitor and progress print one a line"},
    {"quiet", "", "print nothing but what was asked for"},
    {"timeout", "SECONDS", "give up after that time"},
    {"bus", "ADDRESS", "use this bus instead of the system bus"},
    {"version", "", "print the version"},
    {"help", "", "print the help, behind a verb the verb's"},
};

Failure usage(const QString& text)
{
    return {Exit::Usage, text + "; see briscactl --help"};
}

void parse(QCommandLineParser& parser, const QStringList& words)
{
    if (!parser.parse(words))
        throw usage(parser.errorText().toLower().remove(QLatin1Char('.')));
}

void addOptions(QCommandLineParser& parser, std::span<const Option> options)
{
    for (const Option& option : options) {
        QCommandLineOption added(option.name, option.summary);
        added.setValueName(option.value);
        parser.addOption(added);
    }
}

/// Reads with the options of every verb, to find the verb among the words.
void parseForVerb(QCommandLineParser& parser, const QStringList& words)
{
    QStringList known;
    addOptions(parser, kGlobalOptions);
    for (const Verb& verb : kVerbs)
        for (const Option& option : verb.options)
            if (!known.contains(option.name)) {
                known += option.name;
                addOptions(parser, {&option, 1});
            }
    parse(parser, words);
}

int wordCount(const Verb& verb)
{
    return QString(verb.name).count(QLatin1Char(' ')) + 1;
}

const Verb* findVerb(const QStringList& words)
{
    const auto* const found = std::ranges::find_if(kVerbs, [&words](const Verb& verb) {
        return words.mid(0, wordCount(verb)).join(QLatin1Char(' ')) == QLatin1String(verb.name);
    });
    return found == std::end(kVerbs) ? nullptr : found;
}

QString optionHelp(std::span<const Option> options)
{
    QString text;
    for (const Option& option : options)
        text += QString("  --%1 %2\n")
                    .arg(QString("%1 %2").arg(option.name, option.value).leftJustified(18), option.summary);
    return text;
}

QString generalHelp()
{
    QString text =
        "usage: briscactl [OPTION...] VERB [ARGUMENT]\n\nThe operator's tool of the Brisca service.\n\n";
    for (const Verb& verb : kVerbs)
        text += QString("  %1 %2\n")
                    .arg(QString("%1 %2").arg(verb.name, verb.argument).leftJustified(18), verb.summary);
    return text + "\n" + optionHelp(kGlobalOptions);
}

QString verbHelp(const Verb& verb)
{
    return QString("usage: briscactl %1 [OPTION...] %2").arg(verb.name, verb.argument).trimmed() + "\n\n" +
           verb.summary + "\n\n" + optionHelp(verb.options) + optionHelp(kGlobalOptions);
}

QDeadlineTimer deadline(const QCommandLineParser& line, const Verb& verb)
{
    constexpr int kLongestS = INT_MAX / 1000;
    int seconds = verb.timeoutS;
    if (line.isSet("timeout")) {
        bool isNumber = false;
        seconds = line.value("timeout").toInt(&isNumber);
        if (!isNumber || seconds <= 0 || seconds > kLongestS)
            throw usage("--timeout takes a number of seconds from 1");
    }
    return seconds == 0 ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(seconds * 1000LL);
}

QString argument(const Verb& verb, const QStringList& words)
{
    const QString name = verb.argument;
    const bool isOptional = name.isEmpty() || name.startsWith(QLatin1Char('['));
    if (words.size() > (name.isEmpty() ? 0 : 1) || (words.isEmpty() && !isOptional))
        throw usage(QString("usage: briscactl %1 %2").arg(verb.name, name).trimmed());
    return words.value(0);
}

void runVerb(const Verb& verb, const QStringList& words)
{
    QCommandLineParser line;
    addOptions(line, kGlobalOptions);
    addOptions(line, verb.options);
    parse(line, words);
    const Report report(line.isSet("json"), line.isSet("quiet"));
    Command command = {line, argument(verb, line.positionalArguments().mid(wordCount(verb))),
                       line.value("bus"), deadline(line, verb), report};
    verb.run(command);
}
}  // namespace

void runCommandLine(const QStringList& words)
{
    QCommandLineParser parser;
    parseForVerb(parser, words);
    const QStringList found = parser.positionalArguments();
    const Verb* const verb = findVerb(found);
    if (parser.isSet("version"))
        Report::print("briscactl " BRISCA_VERSION);
    else if (parser.isSet("help"))
        Report::print((verb != nullptr ? verbHelp(*verb) : generalHelp()).trimmed());
    else if (verb == nullptr)
        throw usage(found.isEmpty() ? "a verb is missing" : QString("'%1' is no verb").arg(found.join(' ')));
    else
        runVerb(*verb, words);
}
