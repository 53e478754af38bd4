#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace efr32sim {
using Bytes = std::vector<std::uint8_t>;
using ByteSpan = std::span<const std::uint8_t>;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

/// A Bluetooth device address in the order of the air: least significant byte first.
using Address = std::array<std::uint8_t, 6>;

/// What the chip is doing.
enum class Mode {
    Held,        ///< reset line low: silent, everything forgotten
    Bootloader,  ///< console, prompt on carriage return
    Uploading,   ///< console is receiving an image by XMODEM-CRC
    Booting,     ///< application started, boot event not sent yet
    Firmware,    ///< co-processor firmware is running
};
[[nodiscard]] const char* toString(Mode mode);

/// What is on the air. A copy of the moment at which it was asked for.
struct AirState
{
    bool advertising = false;
    bool connectable = false;
    std::uint8_t discoverMode = 0;    ///< as the host set it (4 = data as given by the host)
    std::uint8_t connectMode = 0;     ///< as the host set it (2 = connectable and scannable)
    std::uint32_t intervalMin = 160;  ///< units of 0.625 ms
    std::uint32_t intervalMax = 160;  ///< units of 0.625 ms
    std::uint16_t duration = 0;       ///< units of 10 ms, 0 = until stopped
    std::uint8_t maxEvents = 0;       ///< 0 = no limit
    std::uint8_t channelMap = 7;      ///< bit 0 = channel 37, bit 1 = 38, bit 2 = 39
    Bytes advertisingData;            ///< at most 31 bytes
    Bytes scanResponse;               ///< at most 31 bytes
    Address address{};
    bool operator==(const AirState&) const = default;
};

/// The connection as the chip sees it.
struct LinkState
{
    bool connected = false;
    Address peer{};
    bool subscribed = false;  ///< the phone has enabled notifications
    bool encrypted = false;
    std::uint8_t bonding = 0xFF;  ///< handle of the bond in use, 0xFF = none
};

/// Bytes as lower-case hexadecimal text without separators.
[[nodiscard]] std::string toHex(ByteSpan bytes);
/// Six bytes as "AA:BB:CC:DD:EE:FF", most significant first.
[[nodiscard]] std::string toText(const Address& address);
}  // namespace efr32sim
