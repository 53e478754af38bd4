#pragma once

#include "efr32sim/Fault.h"
#include "efr32sim/Types.h"

#include <optional>

namespace efr32sim {
// Packet on the line, multi-byte fields little-endian:
//   0  bit 7: 1 = event, 0 = command or response; bits 6 to 3: 4; bits 2 to 0: bits 10 to 8 of the length
//   1  bits 7 to 0 of the payload's length
//   2  class id
//   3  command or event id
//   4  payload, at most 256 bytes; a byte array is a count byte and the bytes
constexpr std::size_t kPacketHeader = 4;
constexpr std::size_t kPacketPayload = 256;
constexpr std::uint8_t kCommandType = 0x20;
constexpr std::uint8_t kEventType = 0xA0;
constexpr std::uint8_t kConnection = 1;  // the chip serves one

struct Packet
{
    CommandId id;
    Bytes payload;
};

/// @p type is kCommandType (also for responses) or kEventType.
[[nodiscard]] Bytes encodePacket(std::uint8_t type, const Packet& packet);

/// Builds a payload.
class Writer
{
public:
    Writer& u8(std::size_t value) { return integer(value, 1); }
    Writer& u16(std::size_t value) { return integer(value, 2); }
    Writer& u32(std::size_t value) { return integer(value, 4); }
    Writer& raw(ByteSpan bytes);
    /// A count byte and the bytes.
    Writer& array(ByteSpan bytes) { return u8(bytes.size()).raw(bytes); }
    [[nodiscard]] Bytes take() { return std::move(m_bytes); }

private:
    Writer& integer(std::size_t value, int bytes);
    Bytes m_bytes;
};

/// Takes a payload apart. Reading beyond its end gives zeros and makes ok() false.
class Reader
{
public:
    explicit Reader(ByteSpan bytes) : m_bytes(bytes) {}
    std::uint8_t u8() { return static_cast<std::uint8_t>(integer(1)); }
    std::uint16_t u16() { return static_cast<std::uint16_t>(integer(2)); }
    std::uint32_t u32() { return integer(4); }
    ByteSpan array() { return raw(u8()); }
    ByteSpan raw(std::size_t count);
    [[nodiscard]] bool ok() const { return m_ok; }
    /// Everything was there and nothing is left.
    [[nodiscard]] bool exact() const { return m_ok && m_bytes.empty(); }

private:
    std::uint32_t integer(std::size_t count);
    ByteSpan m_bytes;
    bool m_ok = true;
};

/// Finds command packets in the host's bytes.
class PacketReader
{
public:
    struct Result
    {
        std::vector<Packet> packets;
        Bytes refused;  ///< bytes that belong to no command packet
    };
    [[nodiscard]] Result feed(ByteSpan bytes, Clock::time_point now);
    void reset() { m_pending.clear(); }

private:
    /// Takes one packet or refuses one byte; false when more bytes are needed.
    bool step(Result& result);

    Bytes m_pending;
    Clock::time_point m_lastByte;
};
}  // namespace efr32sim
