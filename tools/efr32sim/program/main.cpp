// efr32sim: the simulated radio chip and phone as a program.
#include "Server.h"

#include <getopt.h>
#include <sys/signalfd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>

using namespace efr32sim;

namespace {
struct Settings
{
    ChipOptions chip;
    PhoneOptions phone;
    Server::Config server;
};

struct Option
{
    const char* name;
    const char* argument;  ///< null for none
    const char* help;
    bool (*apply)(Settings& settings, std::string_view value);
};

template <class Number>
bool set(Number& target, const std::optional<Number>& value)
{
    if (value)
        target = *value;
    return value.has_value();
}

bool setTime(Milliseconds& target, std::string_view value)
{
    const auto number = parseNumber<std::uint32_t>(value);
    if (number)
        target = Milliseconds(*number);
    return number.has_value();
}

bool setPowerOn(Mode& target, std::string_view value)
{
    for (const Mode mode : {Mode::Held, Mode::Bootloader, Mode::Firmware}) {
        if (value == toString(mode)) {
            target = mode;
            return true;
        }
    }
    return false;
}

using View = std::string_view;
constexpr std::array kOptions{
    Option{"tty", "PATH", "symbolic link to the serial line (made and removed)",
           [](Settings& s, View v) { return s.chip.ttyPath = v, true; }},
    Option{"reset", "PATH", "FIFO of the reset line, '0' holds and '1' runs (made if missing)",
           [](Settings& s, View v) { return s.chip.resetPath = v, true; }},
    Option{"control", "PATH", "Unix socket that takes the same commands as standard input",
           [](Settings& s, View v) { return s.server.socketPath = v, true; }},
    Option{"json", nullptr, "replies and events as JSON, one object a line",
           [](Settings& s, View) { return s.server.json = true; }},
    Option{"no-stdin", nullptr, "no conversation on standard input and output",
           [](Settings& s, View) { return s.server.standardInput = false, true; }},
    Option{"pace", nullptr, "bytes take their real time on the line",
           [](Settings& s, View) { return s.chip.pace = true; }},
    Option{"any-line", nullptr, "the line's speed and format do not matter",
           [](Settings& s, View) { return s.chip.checkLine = false, true; }},
    Option{"power-on", "MODE", "held, bootloader (default) or firmware",
           [](Settings& s, View v) { return setPowerOn(s.chip.powerOn, v); }},
    Option{"boot-delay", "MS", "from the start of the firmware to its boot event (300)",
           [](Settings& s, View v) { return setTime(s.chip.bootDelay, v); }},
    Option{"bootloader-delay", "MS", "from a reset until the console hears (0)",
           [](Settings& s, View v) { return setTime(s.chip.bootloaderDelay, v); }},
    Option{"upload-erases", nullptr, "an upload that broke off leaves no firmware",
           [](Settings& s, View) { return s.chip.uploadErases = true; }},
    Option{"menu", "TEXT", "menu of the console; \\r \\n \\xNN are understood",
           [](Settings& s, View v) { return s.chip.menu = unescape(v), true; }},
    Option{"prompt", "TEXT", "prompt of the console",
           [](Settings& s, View v) { return s.chip.prompt = unescape(v), true; }},
    Option{"info", "TEXT", "information text of the console",
           [](Settings& s, View v) { return s.chip.information = unescape(v), true; }},
    Option{"address", "ADDRESS", "the chip's address, AA:BB:CC:DD:EE:FF",
           [](Settings& s, View v) { return set(s.chip.address, parseAddress(v)); }},
    Option{"characteristic", "HANDLE", "handle of the characteristic that carries the data (26)",
           [](Settings& s, View v) { return set(s.chip.characteristic, parseNumber<std::uint16_t>(v)); }},
    Option{"phone", "ADDRESS", "the phone's address",
           [](Settings& s, View v) { return set(s.phone.address, parseAddress(v)); }},
    Option{"phone-interval", "MS", "pause between the fragments that the phone writes (0)",
           [](Settings& s, View v) { return setTime(s.phone.writeInterval, v); }},
    Option{"phone-requests", nullptr, "the phone's messages go as Write Requests",
           [](Settings& s, View) { return s.phone.withResponse = true; }},
    Option{"chaos", "SEED", "random faults, the same for the same seed",
           [](Settings& s, View v) {
               s.chip.chaosSeed = parseNumber<std::uint64_t>(v);
               return s.chip.chaosSeed.has_value();
           }},
    Option{"chaos-rate", "P", "probability of a fault at each opportunity, 0 to 1 (0.02)",
           [](Settings& s, View v) { return set(s.chip.chaosRate, parseFraction(v)); }},
};

constexpr const char* kIntroduction =
    "Usage: efr32sim [OPTION]...\n"
    "A simulated EFR32 radio chip on a pseudo-terminal, and a phone beside it.\n\n"
    "Options:\n";

constexpr const char* kExample =
    "\nExample: a chip for the service, and a phone that asks it something as soon as it advertises.\n"
    "  $ efr32sim --tty /dev/evse/tty_efr32 --reset /dev/evse/io_efr32_reset\n"
    "  fault silent-reset\n"
    "  connect 60000\n"
    "  text hello\n"
    "  receive\n"
    "  quit\n\n"
    "Replies are \"ok key=value ...\" or \"error text\". Events are \"event NUMBER SECONDS NAME key=value "
    "...\".\n"
    "With --json each is an object: {\"reply\":\"ok\",...} or {\"event\":\"NAME\",...}.\n";

void printHelp()
{
    (void)std::fputs(kIntroduction, stdout);
    for (const Option& option : kOptions) {
        const std::string usage =
            std::string("--") + option.name + ' ' + (option.argument ? option.argument : "");
        (void)std::printf("  %-28s%s\n", usage.c_str(), option.help);
    }
    (void)std::printf("  %-28s%s\n\nCommands:\n%s%s", "--help", "this text", Control::help().c_str(),
                      kExample);
}

/// The exit status when the program is not to run, else nothing.
std::optional<int> parseArguments(int argc, char** argv, Settings& settings)
{
    std::vector<option> names;
    names.reserve(kOptions.size() + 2);
    for (const Option& entry : kOptions)
        names.push_back({entry.name, entry.argument ? required_argument : no_argument, nullptr, 0});
    names.push_back({"help", no_argument, nullptr, 0});
    names.push_back({});
    int index = 0;
    for (int code = 0; (code = ::getopt_long(argc, argv, "", names.data(), &index)) != -1;) {
        if (code != 0)
            return 2;
        const auto which = static_cast<std::size_t>(index);
        if (which == kOptions.size()) {
            printHelp();
            return 0;
        }
        if (!kOptions[which].apply(settings, ::optarg ? ::optarg : "")) {
            (void)std::fprintf(stderr, "efr32sim: bad value for --%s\n", kOptions[which].name);
            return 2;
        }
    }
    if (::optind == argc)
        return std::nullopt;
    (void)std::fprintf(stderr, "efr32sim: unexpected argument \"%s\"\n", argv[::optind]);
    return 2;
}

/// A descriptor that becomes readable when the program is told to end. Blocks the signals for all threads.
Fd endSignals()
{
    (void)std::signal(SIGPIPE, SIG_IGN);
    sigset_t set;
    ::sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        ::sigaddset(&set, number);
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    return ownOrThrow(::signalfd(-1, &set, SFD_CLOEXEC), "signalfd");
}
}  // namespace

int main(int argc, char** argv)
{
    Settings settings;
    if (const auto status = parseArguments(argc, argv, settings))
        return *status;
    try {
        const Fd signals = endSignals();
        Chip chip(settings.chip);
        Phone phone(chip, settings.phone);
        Server server(settings.server, chip, phone);
        chip.start();
        server.run(signals.get());
        return 0;
    } catch (const std::exception& failure) {
        (void)std::fprintf(stderr, "efr32sim: %s\n", failure.what());
        return 1;
    }
}
