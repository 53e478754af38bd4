#include "Control.h"

#include <algorithm>
#include <array>
#include <fstream>

namespace efr32sim {
namespace {
Reply error(std::string text)
{
    return {false, std::move(text)};
}

Reply done(bool good, const char* otherwise)
{
    return good ? Reply{} : error(otherwise);
}

std::int64_t count(std::size_t value)
{
    return static_cast<std::int64_t>(value);
}

/// An optional time in milliseconds; @p otherwise when the word is missing, nothing when it is no number.
std::optional<Milliseconds> parseTime(std::string_view word, Milliseconds otherwise)
{
    if (word.empty())
        return otherwise;
    const auto number = parseNumber<std::uint32_t>(word);
    return number ? std::optional(Milliseconds(*number)) : std::nullopt;
}

constexpr Milliseconds kDefaultWait{10000};
constexpr const char* kBadTime = "expected a time in milliseconds";
constexpr const char* kBadHex = "expected bytes in hexadecimal";
constexpr const char* kNoLink = "the phone is not connected";

/// One "key=value" of a fault; false when it makes no sense.
bool setFaultField(Fault& fault, std::string_view key, std::string_view value)
{
    const auto number = parseNumber<std::uint32_t>(value);
    const auto bytes = parseHex(value);
    if (key == "bytes" && bytes) {
        fault.bytes = *bytes;
    } else if (key == "command" && bytes && bytes->size() == 2) {
        fault.command = CommandId{bytes->at(0), bytes->at(1)};
    } else if (key == "packet" && (value == "event" || value == "response")) {
        fault.type = value == "event" ? PacketType::Event : PacketType::Response;
    } else if (key == "count" && number) {
        fault.count = *number;
    } else if (key == "skip" && number) {
        fault.skip = *number;
    } else if (key == "delay" && number) {
        fault.delay = Milliseconds(*number);
    } else if (key == "length" && number) {
        fault.length = *number;
    } else if (key == "result" && number && *number <= 0xFFFF) {
        fault.result = static_cast<std::uint16_t>(*number);
    } else {
        return false;
    }
    return true;
}

std::optional<ConsoleText> consoleTextByName(std::string_view name)
{
    if (name == "menu")
        return ConsoleText::Menu;
    if (name == "prompt")
        return ConsoleText::Prompt;
    if (name == "info")
        return ConsoleText::Information;
    return std::nullopt;
}

std::string describe(const AdStructures& decoded)
{
    std::string text;
    for (const AdStructure& structure : decoded.structures)
        text += (text.empty() ? "" : ", ") + adTypeName(structure.type) + " " + toHex(structure.data);
    return decoded.malformed ? text + " (malformed)" : text;
}
}  // namespace

std::span<const Control::Command> Control::commands()
{
    using C = Control;
    static constexpr std::array kCommands{
        Command{"help", "[COMMAND]", "this list", &C::help},
        Command{"status", "", "mode, line, connection and images received", &C::status},
        Command{"events", "on|off", "whether events are shown to this client (on at first)", &C::events},
        Command{"wait", "EVENT [MS]", "waits for an event since the last other command (10 s)", &C::wait},
        Command{"quit", "", "ends the simulator", &C::quit},
        Command{"reset", "0|1", "level of the reset line: 0 holds, 1 releases into the bootloader",
                &C::reset},
        Command{"reboot", "", "the firmware restarts by itself", &C::reboot},
        Command{"hangup", "", "tears the serial line out", &C::hangUp},
        Command{"plugin", "", "plugs a new serial line in", &C::plugIn},
        Command{"console", "menu|prompt|info TEXT", "sets a console text; \\r \\n \\xNN are understood",
                &C::texts},
        Command{"image", "[FILE]", "size of the last image received, and writes it to FILE", &C::image},
        Command{"fault", "NAME [KEY=VALUE]...",
                "injects a fault; keys: count skip command packet delay result length bytes", &C::fault},
        Command{"faults", "clear", "forgets the faults that have not struck", &C::faults},
        Command{"event", "CLASS ID [HEX]", "sends an event packet of your own", &C::sendEvent},
        Command{"burst", "COUNT", "sends COUNT RSSI events at once", &C::burst},
        Command{"raw", "HEX", "sends bytes as they stand", &C::raw},
        Command{"rssi", "DBM", "signal strength that is reported", &C::rssi},
        Command{"dtm", "COUNT", "packets that a radio test reports at its end", &C::dtm},
        Command{"bond", "ADDRESS", "stores a bond, e.g. for AA:BB:CC:DD:EE:FF", &C::bond},
        Command{"scan", "[MS]", "what is on the air, waiting for it up to MS (0)", &C::scan},
        Command{"connect", "[MS]", "the phone connects, waiting for advertising up to MS (0)", &C::connect},
        Command{"disconnect", "[REASON]", "the phone ends the connection (0x0213)", &C::disconnect},
        Command{"subscribe", "on|off", "the phone enables or disables notifications", &C::subscribe},
        Command{"write", "HEX", "the phone writes one fragment without response", &C::write},
        Command{"request", "HEX", "the phone writes one fragment and waits for the answer", &C::request},
        Command{"read", "HANDLE", "the phone reads a characteristic", &C::read},
        Command{"message", "HEX", "the phone sends a whole message in fragments", &C::message},
        Command{"text", "TEXT", "the same with the message as text", &C::text},
        Command{"receive", "[MS]", "the next message that the phone has put together (10 s)", &C::receive},
        Command{"notification", "[MS]", "the next notification as it came (10 s)", &C::notification},
        Command{"violations", "", "what broke the fragment format so far", &C::violations},
        Command{"pair", "", "the phone asks for pairing", &C::pair},
        Command{"passkey", "NUMBER", "the phone's user types a passkey", &C::passkey},
    };
    return kCommands;
}

std::string toLine(const Reply& reply)
{
    if (!reply.good)
        return "error " + reply.text;
    std::string lines;
    for (std::string_view text = reply.text; !text.empty();) {
        const std::string_view line = text.substr(0, text.find('\n'));
        lines += "# " + std::string(line) + '\n';
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return lines + "ok" + toLine(reply.fields);
}

std::string toJson(const Reply& reply)
{
    Fields fields = reply.fields;
    if (!reply.text.empty())
        fields.emplace_back("text", reply.text);
    return std::string("{\"reply\":") + (reply.good ? "\"ok\"" : "\"error\"") + toJson(fields) + '}';
}

Control::Control(Chip& chip, Phone& phone, std::function<void()> quit)
    : m_chip(chip), m_phone(phone), m_quit(std::move(quit)), m_since(chip.follow())
{
}

std::string Control::help()
{
    std::string text;
    const auto add = [&text](std::string usage, std::string_view help) {
        usage.resize(std::max<std::size_t>(usage.size() + 1, 32), ' ');
        text += "  " + usage + std::string(help) + '\n';
    };
    for (const Command& command : commands())
        add(std::string(command.name) + ' ' + std::string(command.arguments), command.help);
    text += "\nFaults:\n";
    for (const FaultInfo& fault : allFaults())
        add(fault.name, fault.help);
    return text;
}

Reply Control::execute(std::string_view line)
{
    Words words(line);
    const std::string_view name = words.next();
    if (name.empty() || name.front() == '#')
        return {};
    const auto all = commands();
    const auto command =
        std::find_if(all.begin(), all.end(), [name](const Command& entry) { return entry.name == name; });
    if (command == all.end())
        return error("unknown command \"" + std::string(name) + "\", try help");
    if (command->run != &Control::wait)
        m_since = m_chip.follow();
    return (this->*command->run)(words);
}

Reply Control::help(Words& words)
{
    const std::string_view name = words.next();
    if (name.empty())
        return {true, help()};
    for (const Command& command : commands()) {
        if (command.name == name)
            return {true, std::string(name) + ' ' + std::string(command.arguments) + ": " +
                              std::string(command.help) + '\n'};
    }
    return error("no such command");
}

Reply Control::status(Words&)
{
    const LinkState link = m_chip.link();
    return {true,
            "",
            {{"mode", toString(m_chip.mode())},
             {"tty", m_chip.slavePath()},
             {"advertising", m_chip.air().advertising ? 1 : 0},
             {"connected", link.connected ? 1 : 0},
             {"subscribed", link.subscribed ? 1 : 0},
             {"encrypted", link.encrypted ? 1 : 0},
             {"images", m_chip.imageCount()}}};
}

Reply Control::events(Words& words)
{
    const std::string_view word = words.next();
    if (word != "on" && word != "off")
        return error("expected on or off");
    m_eventsWanted = word == "on";
    return {};
}

Reply Control::wait(Words& words)
{
    const auto kind = eventByName(words.next());
    const auto limit = parseTime(words.next(), kDefaultWait);
    if (!kind || !limit)
        return error(kind ? kBadTime : "no such event");
    const auto event = m_since.waitFor(*kind, {}, *limit);
    return event ? Reply{true, "", event->fields} : error("it did not come");
}

Reply Control::quit(Words&)
{
    m_quit();
    return {};
}

// --- The chip ---------------------------------------------------------------------------------------

Reply Control::reset(Words& words)
{
    const std::string_view level = words.next();
    if (level != "0" && level != "1")
        return error("expected 0 or 1");
    m_chip.setReset(level == "1");
    return {};
}

Reply Control::reboot(Words&)
{
    m_chip.reboot();
    return {};
}

Reply Control::hangUp(Words&)
{
    m_chip.hangUp();
    return {};
}

Reply Control::plugIn(Words&)
{
    m_chip.plugIn();
    return {true, "", {{"tty", m_chip.slavePath()}}};
}

Reply Control::texts(Words& words)
{
    const auto text = consoleTextByName(words.next());
    if (!text)
        return error("expected menu, prompt or info");
    m_chip.setConsoleText(*text, unescape(words.rest()));
    return {};
}

Reply Control::image(Words& words)
{
    const Bytes image = m_chip.image();
    const std::string file(words.rest());
    if (!file.empty()) {
        std::ofstream out(file, std::ios::binary);
        out.write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
        if (!out.flush())
            return error("cannot write " + file);
    }
    return {true, "", {{"bytes", count(image.size())}, {"images", m_chip.imageCount()}}};
}

Reply Control::fault(Words& words)
{
    const auto kind = faultByName(words.next());
    if (!kind)
        return error("no such fault");
    Fault fault{.kind = *kind};
    for (std::string_view word = words.next(); !word.empty(); word = words.next()) {
        const std::size_t equals = std::min(word.find('='), word.size());
        if (equals == word.size() || !setFaultField(fault, word.substr(0, equals), word.substr(equals + 1)))
            return error("bad fault setting \"" + std::string(word) + '"');
    }
    m_chip.inject(fault);
    return {};
}

Reply Control::faults(Words& words)
{
    if (words.next() != "clear")
        return error("expected clear");
    m_chip.clearFaults();
    return {};
}

Reply Control::sendEvent(Words& words)
{
    const auto class_id = parseNumber<std::uint8_t>(words.next());
    const auto id = parseNumber<std::uint8_t>(words.next());
    const auto payload = parseHex(words.rest());
    if (!class_id || !id || !payload)
        return error("expected a class, an id and bytes in hexadecimal");
    return done(m_chip.sendEvent(*class_id, *id, *payload), "the firmware does not run");
}

Reply Control::burst(Words& words)
{
    const auto number = parseNumber<unsigned>(words.next());
    if (!number || *number > 10000)
        return error("expected a number up to 10000");
    return done(m_chip.sendBurst(*number), "the firmware does not run");
}

Reply Control::raw(Words& words)
{
    const auto bytes = parseHex(words.rest());
    if (!bytes)
        return error(kBadHex);
    return done(m_chip.sendRaw(*bytes), "the chip is held");
}

Reply Control::rssi(Words& words)
{
    const auto dbm = parseNumber<std::int8_t>(words.next());
    if (!dbm)
        return error("expected -128 to 127");
    m_chip.setRssi(*dbm);
    return {};
}

Reply Control::dtm(Words& words)
{
    const auto packets = parseNumber<std::uint16_t>(words.next());
    if (!packets)
        return error("expected 0 to 65535");
    m_chip.setDtmPackets(*packets);
    return {};
}

Reply Control::bond(Words& words)
{
    const auto address = parseAddress(words.next());
    if (!address)
        return error("expected an address");
    m_chip.addBond(*address, 0);
    return {};
}

// --- The phone --------------------------------------------------------------------------------------

Reply Control::scan(Words& words)
{
    const auto limit = parseTime(words.next(), Milliseconds(0));
    if (!limit)
        return error(kBadTime);
    const auto result = m_phone.scan(*limit);
    if (!result)
        return error("nothing on the air");
    const AirState& air = result->air;
    const auto name = result->scanResponse.localName();
    return {true,
            "",
            {{"address", toText(air.address)},
             {"name", name.value_or(result->advertising.localName().value_or(""))},
             {"connectable", air.connectable ? 1 : 0},
             {"discover", air.discoverMode},
             {"interval_min", air.intervalMin},
             {"interval_max", air.intervalMax},
             {"duration", air.duration},
             {"channels", air.channelMap},
             {"data", air.advertisingData},
             {"scan_response", air.scanResponse},
             {"decoded", describe(result->advertising)},
             {"decoded_scan_response", describe(result->scanResponse)}}};
}

Reply Control::connect(Words& words)
{
    const auto limit = parseTime(words.next(), Milliseconds(0));
    if (!limit)
        return error(kBadTime);
    return done(m_phone.connect(*limit), "no connectable advertising");
}

Reply Control::disconnect(Words& words)
{
    const std::string_view word = words.next();
    const auto reason = word.empty() ? Phone::kClosedByPhone : parseNumber<std::uint16_t>(word);
    if (!reason)
        return error("expected a reason");
    if (!m_phone.connected())
        return error(kNoLink);
    m_phone.disconnect(*reason);
    return {};
}

Reply Control::subscribe(Words& words)
{
    const std::string_view word = words.next();
    if (word != "on" && word != "off")
        return error("expected on or off");
    return done(m_phone.subscribe(word == "on"), kNoLink);
}

Reply Control::write(Words& words)
{
    const auto bytes = parseHex(words.rest());
    return bytes ? done(m_phone.writeCommand(*bytes), kNoLink) : error(kBadHex);
}

Reply Control::request(Words& words)
{
    const auto bytes = parseHex(words.rest());
    if (!bytes)
        return error(kBadHex);
    const auto answer = m_phone.writeRequest(*bytes, kDefaultWait);
    return answer ? Reply{true, "", {{"att_error", *answer}}} : error("not connected, or no answer");
}

Reply Control::read(Words& words)
{
    const auto handle = parseNumber<std::uint16_t>(words.next());
    if (!handle)
        return error("expected a handle");
    const auto value = m_phone.read(*handle, kDefaultWait);
    return value ? Reply{true, "", {{"value", *value}}} : error("not connected, refused, or no answer");
}

Reply Control::message(Words& words)
{
    const auto bytes = parseHex(words.rest());
    return bytes ? done(m_phone.writeMessage(*bytes), kNoLink) : error(kBadHex);
}

Reply Control::text(Words& words)
{
    return done(m_phone.writeMessage(unescape(words.rest())), kNoLink);
}

Reply Control::receive(Words& words)
{
    const auto limit = parseTime(words.next(), kDefaultWait);
    if (!limit)
        return error(kBadTime);
    const auto payload = m_phone.waitMessage(*limit);
    return payload ? Reply{true, "", {{"payload", *payload}}} : error("no message came");
}

Reply Control::notification(Words& words)
{
    const auto limit = parseTime(words.next(), kDefaultWait);
    if (!limit)
        return error(kBadTime);
    const auto value = m_phone.waitNotification(*limit);
    return value ? Reply{true, "", {{"value", *value}}} : error("no notification came");
}

Reply Control::violations(Words&)
{
    const std::vector<std::string> all = m_phone.violations();
    std::string text;
    for (const std::string& violation : all)
        text += violation + '\n';
    return {true, text, {{"count", count(all.size())}}};
}

Reply Control::pair(Words&)
{
    return done(m_phone.pair(), kNoLink);
}

Reply Control::passkey(Words& words)
{
    const auto number = parseNumber<std::uint32_t>(words.next());
    if (!number)
        return error("expected a number");
    return done(m_phone.enterPasskey(*number), "no passkey is asked for");
}
}  // namespace efr32sim
