#pragma once

#include "Words.h"
#include "efr32sim/Chip.h"
#include "efr32sim/Phone.h"

#include <atomic>
#include <functional>
#include <string>
#include <string_view>

namespace efr32sim {
/// Outcome of one control command.
struct Reply
{
    bool good = true;
    std::string text;  ///< why not; or lines to be shown as they stand (help)
    Fields fields = {};
};
/// "ok key=value ..." or "error text", without line feed. Lines of text precede it, each after "# ".
[[nodiscard]] std::string toLine(const Reply& reply);
[[nodiscard]] std::string toJson(const Reply& reply);

/// The control commands of one client, carried out on a chip and a phone that all clients share.
class Control
{
public:
    Control(Chip& chip, Phone& phone, std::function<void()> quit);

    /// Carries out one line. May wait as long as the command says.
    [[nodiscard]] Reply execute(std::string_view line);
    [[nodiscard]] bool eventsWanted() const { return m_eventsWanted; }

    /// All commands with their arguments, one a line.
    [[nodiscard]] static std::string help();

private:
    struct Command
    {
        std::string_view name;
        std::string_view arguments;
        std::string_view help;
        Reply (Control::*run)(Words& words);
    };
    static std::span<const Command> commands();

    Reply help(Words& words);
    Reply status(Words& words);
    Reply events(Words& words);
    Reply wait(Words& words);
    Reply quit(Words& words);
    Reply reset(Words& words);
    Reply reboot(Words& words);
    Reply hangUp(Words& words);
    Reply plugIn(Words& words);
    Reply texts(Words& words);
    Reply image(Words& words);
    Reply fault(Words& words);
    Reply faults(Words& words);
    Reply sendEvent(Words& words);
    Reply burst(Words& words);
    Reply raw(Words& words);
    Reply rssi(Words& words);
    Reply dtm(Words& words);
    Reply bond(Words& words);
    Reply scan(Words& words);
    Reply connect(Words& words);
    Reply disconnect(Words& words);
    Reply subscribe(Words& words);
    Reply write(Words& words);
    Reply request(Words& words);
    Reply read(Words& words);
    Reply message(Words& words);
    Reply text(Words& words);
    Reply receive(Words& words);
    Reply notification(Words& words);
    Reply violations(Words& words);
    Reply pair(Words& words);
    Reply passkey(Words& words);

    Chip& m_chip;
    Phone& m_phone;
    std::function<void()> m_quit;
    std::atomic<bool> m_eventsWanted{true};
    EventCursor m_since;  // events since the last command that was no "wait"
};
}  // namespace efr32sim
