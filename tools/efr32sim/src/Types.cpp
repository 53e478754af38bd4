#include "efr32sim/Types.h"

#include "efr32sim/Fault.h"

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

const char* toString(FaultKind kind)
{
    switch (kind) {
        case FaultKind::SilentReset:
            return "silent-reset";
        case FaultKind::Silence:
            return "silence";
        case FaultKind::NoisyPrompt:
            return "noisy-prompt";
        case FaultKind::NoiseBeforePacket:
            return "noise";
        case FaultKind::CutPacket:
            return "cut";
        case FaultKind::OversizeHeader:
            return "oversize";
        case FaultKind::LostResponse:
            return "lost-response";
        case FaultKind::LateResponse:
            return "late-response";
        case FaultKind::ErrorResponse:
            return "error-response";
        case FaultKind::EventBeforeResponse:
            return "event-before-response";
        case FaultKind::RefuseNotification:
            return "refuse-notification";
        case FaultKind::XmodemAnswer:
            return "xmodem-answer";
        case FaultKind::CorruptBlock:
            return "corrupt-block";
        case FaultKind::LostBoot:
            return "lost-boot";
    }
    return "?";
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
