#include "efr32sim/Types.h"

#include "efr32sim/Fault.h"

#include <algorithm>
#include <array>
#include <utility>

namespace efr32sim {
const char* toString(Mode mode)
{
    switch (mode) {
        case Mode::Held:
            return "held";
        case Mode::Bootloader:
            return "bootloader";
        case Mode::Uploading:
            return "uploading";
        case Mode::Booting:
            return "booting";
        case Mode::Firmware:
            return "firmware";
    }
    return "?";
}

std::span<const FaultInfo> allFaults()
{
    using enum FaultKind;
    static constexpr std::array kFaults{
        FaultInfo{SilentReset, "silent-reset", "after the next reset the bootloader says nothing"},
        FaultInfo{Silence, "silence",
                  "nothing said or heard for delay ms from now on (count=0: until cleared)"},
        FaultInfo{NoisyPrompt, "noisy-prompt", "bytes (ff00) appear inside the prompt"},
        FaultInfo{NoiseBeforePacket, "noise", "bytes (00ff7f) before a packet"},
        FaultInfo{CutPacket, "cut", "only the first length (3) bytes of a packet are sent"},
        FaultInfo{OversizeHeader, "oversize", "a header announcing 257 bytes before a packet"},
        FaultInfo{LostResponse, "lost-response", "a command is carried out, its response not sent"},
        FaultInfo{LateResponse, "late-response", "a response comes delay (500) ms late"},
        FaultInfo{ErrorResponse, "error-response", "a command is only answered with result (0x0181)"},
        FaultInfo{EventBeforeResponse, "event-before-response", "an RSSI event between command and response"},
        FaultInfo{RefuseNotification, "refuse-notification",
                  "a notification is answered with result (0x0181)"},
        FaultInfo{XmodemAnswer, "xmodem-answer", "a block is answered with bytes (none) and not stored"},
        FaultInfo{CorruptBlock, "corrupt-block", "a block is taken as damaged"},
        FaultInfo{LostBoot, "lost-boot", "the firmware starts without its boot event"},
        FaultInfo{LostEvent, "lost-event", "an event is not sent"},
        FaultInfo{DoublePacket, "double", "a packet is sent twice"},
        FaultInfo{FlippedBit, "flip", "bit number length of a packet is inverted"},
    };
    return kFaults;
}

const char* toString(FaultKind kind)
{
    const auto all = allFaults();
    const auto found =
        std::find_if(all.begin(), all.end(), [kind](const FaultInfo& fault) { return fault.kind == kind; });
    return found == all.end() ? "?" : found->name;
}

std::optional<FaultKind> faultByName(std::string_view name)
{
    const auto all = allFaults();
    const auto found =
        std::find_if(all.begin(), all.end(), [name](const FaultInfo& fault) { return fault.name == name; });
    return found == all.end() ? std::nullopt : std::optional(found->kind);
}

namespace {
void appendHex(std::string& out, std::uint8_t byte, const char* digits)
{
    out += digits[byte >> 4];
    out += digits[byte & 15];
}
}  // namespace

std::string toHex(ByteSpan bytes)
{
    std::string out;
    out.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes)
        appendHex(out, byte, "0123456789abcdef");
    return out;
}

std::string toText(const Address& address)
{
    std::string out;
    for (auto byte = address.rbegin(); byte != address.rend(); ++byte) {
        if (!out.empty())
            out += ':';
        appendHex(out, *byte, "0123456789ABCDEF");
    }
    return out;
}
}  // namespace efr32sim
