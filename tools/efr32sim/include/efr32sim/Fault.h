#pragma once

#include "efr32sim/Types.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace efr32sim {
/// Class and id of a command, e.g. {0x03, 0x14}.
struct CommandId
{
    std::uint8_t classId = 0;
    std::uint8_t id = 0;
    bool operator==(const CommandId&) const = default;
};

/// Which of the packets with a class and id: the two kinds share their numbers.
enum class PacketType { Any, Response, Event };

/// What can go wrong. Each fault waits until its moment comes and is used up after `count` of them.
enum class FaultKind {
    SilentReset,          ///< after the next resets the bootloader says nothing
    Silence,              ///< the chip says nothing and hears nothing for `delay`, starting at once
    NoisyPrompt,          ///< `bytes` (default 0xFF 0x00) appear inside the prompt
    NoiseBeforePacket,    ///< `bytes` (default 0x00 0xFF 0x7F) before a packet
    CutPacket,            ///< only the first `length` bytes of a packet are sent
    OversizeHeader,       ///< a header that announces 257 payload bytes before a packet
    LostResponse,         ///< the command is executed, its response never sent
    LateResponse,         ///< its response comes `delay` later
    ErrorResponse,        ///< the command is not executed and answered with `result`
    EventBeforeResponse,  ///< an event (an RSSI report) between command and response
    RefuseNotification,   ///< a notification is answered with `result` and not delivered
    XmodemAnswer,         ///< a block is answered with `bytes` instead (empty: not at all) and not stored
    CorruptBlock,         ///< a received block is taken as damaged: NAK
    LostBoot,             ///< the firmware starts without its boot event
    // Not among the random faults:
    LostEvent,     ///< an event is never sent; CutPacket does the same
    DoublePacket,  ///< a packet is sent twice
    FlippedBit,    ///< bit `length` of a packet is inverted, counted from the lowest of its first byte
};
/// A fault's name in the control protocol, and what it does.
struct FaultInfo
{
    FaultKind kind;
    const char* name;
    const char* help;
};
[[nodiscard]] std::span<const FaultInfo> allFaults();
[[nodiscard]] const char* toString(FaultKind kind);
[[nodiscard]] std::optional<FaultKind> faultByName(std::string_view name);

struct Fault
{
    FaultKind kind = FaultKind::Silence;
    unsigned count = 1;                               ///< how many times; 0 = until the faults are cleared
    unsigned skip = 0;                                ///< opportunities that pass unharmed first
    std::optional<CommandId> command = std::nullopt;  ///< only for this command; none = for any
    PacketType type = PacketType::Any;                ///< of the packets that `command` names
    Milliseconds delay{500};
    std::uint16_t result = 0x0181;
    std::size_t length = 3;
    Bytes bytes = {};
};
}  // namespace efr32sim
