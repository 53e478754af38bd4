#pragma once

// Packing and unpacking of packet payloads, byte by byte: all multi-byte fields are little-endian.

#include "gecko.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace ncp {
/// One field of a command's payload: an integer of 1, 2 or 4 bytes, or an array with its count in front.
struct Field
{
    std::uint8_t width;  ///< bytes of the integer; 0 for an array
    std::uint32_t integer = 0;
    std::uint8_t count = 0;
    const std::uint8_t* bytes = nullptr;
};

constexpr Field u8(std::uint8_t value)
{
    return {1, value};
}
constexpr Field u16(std::uint16_t value)
{
    return {2, value};
}
constexpr Field u32(std::uint32_t value)
{
    return {4, value};
}
constexpr Field i16(std::int16_t value)
{
    return u16(static_cast<std::uint16_t>(value));
}
constexpr Field i32(std::int32_t value)
{
    return u32(static_cast<std::uint32_t>(value));
}
constexpr Field array(std::uint8_t count, const std::uint8_t* bytes)
{
    return {0, 0, count, bytes};
}

/// Reads the fields of a payload in order. Bytes that the packet is too short for read as 0, as in the
/// cleared response buffer; arrays end where the packet ends.
class PayloadReader
{
public:
    explicit PayloadReader(gecko_cmd_packet& packet)
        : m_rest(packet.payload.data(), std::min(gecko_payload_length(packet), packet.payload.size()))
    {
    }

    [[nodiscard]] std::size_t size() const { return m_rest.size(); }
    std::uint8_t u8() { return static_cast<std::uint8_t>(integer(1)); }
    std::int8_t i8() { return static_cast<std::int8_t>(u8()); }
    std::uint16_t u16() { return static_cast<std::uint16_t>(integer(2)); }
    std::int16_t i16() { return static_cast<std::int16_t>(u16()); }
    std::uint32_t u32() { return integer(4); }
    /// Copies @p count bytes, zeros where the packet has none.
    void copy(std::uint8_t* out, std::size_t count)
    {
        std::generate_n(out, count, [this] { return u8(); });
    }
    /// An array: its count byte and then its bytes.
    std::span<std::uint8_t> array()
    {
        const std::size_t count = u8();
        return take(count);
    }

private:
    std::span<std::uint8_t> take(std::size_t count)
    {
        const auto taken = m_rest.first(std::min(count, m_rest.size()));
        m_rest = m_rest.subspan(taken.size());
        return taken;
    }
    std::uint32_t integer(std::size_t width)
    {
        const auto bytes = take(width);
        std::uint32_t value = 0;
        for (std::size_t i = bytes.size(); i-- > 0;)
            value = (value << 8) | bytes[i];
        return value;
    }

    std::span<std::uint8_t> m_rest;
};
}  // namespace ncp
