#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>

/// The bytes of one direction of the bridge; never blocks. Results are those of read(2) and write(2).
class ByteStreamI
{
public:
    virtual ~ByteStreamI() = default;
    [[nodiscard]] virtual ssize_t read(std::span<std::uint8_t> buffer) = 0;
    [[nodiscard]] virtual ssize_t write(std::span<const std::uint8_t> bytes) = 0;
};
