#pragma once

#include "gecko.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <vector>

/// The co-processor's line in memory, which takes no time. One thread.
struct MemoryLine
{
    using Bytes = std::vector<std::uint8_t>;

    /// Puts the line in the serial line's place.
    static void use()
    {
        bglib_output = output;
        bglib_input = input;
        bglib_peek = [] { return static_cast<std::int32_t>(toHost.size()); };
    }
    /// The event that carries a write without response of the phone.
    static Bytes writeEvent(std::span<const std::uint8_t> value)
    {
        const auto size = static_cast<std::uint8_t>(value.size());
        const std::array<std::uint8_t, 11> head = {
            0xA0, static_cast<std::uint8_t>(size + 7), 0x0A, 0x02, 1, 26, 0, 0x52, 0, 0, size};
        Bytes packet(head.size() + value.size());
        std::copy(value.begin(), value.end(), std::copy(head.begin(), head.end(), packet.begin()));
        return packet;
    }

    static inline std::span<const std::uint8_t> toHost;
    static inline std::span<const std::uint8_t> response;  // what the chip answers to every command
    static inline std::uint64_t commands = 0;

private:
    static std::int32_t input(std::uint32_t length, std::uint8_t* buffer)
    {
        std::copy_n(toHost.begin(), length, buffer);
        toHost = toHost.subspan(length);
        return static_cast<std::int32_t>(length);
    }
    static std::int32_t output(std::uint32_t length, const std::uint8_t*)
    {
        toHost = response;
        ++commands;
        return static_cast<std::int32_t>(length);
    }
};
