#include "crc16.h"

#include <array>
#include <cstdint>

namespace {
constexpr int kByteBits = 8;
constexpr int kCrcBits = 16;

constexpr unsigned short shiftByte(unsigned short crc, unsigned byte)
{
    for (int bit = kByteBits - 1; bit >= 0; --bit)
        crc = crc_update(crc, static_cast<int>((byte >> bit) & 1U));
    return crc;
}

constexpr unsigned short shiftZeros(unsigned short crc)
{
    for (int bit = 0; bit < kCrcBits; ++bit)
        crc = crc_update(crc, 0);
    return crc;
}

constexpr std::array<std::uint16_t, 256> makeTable()
{
    std::array<std::uint16_t, 256> table = {};
    for (unsigned byte = 0; byte < table.size(); ++byte)
        table[byte] = shiftZeros(shiftByte(0, byte));
    return table;
}

constexpr std::array<std::uint16_t, 256> kTable = makeTable();
}  // namespace

unsigned short crc16(const unsigned char* data, unsigned short length)
{
    unsigned short crc = 0;
    for (const unsigned char byte : std::span(data, length))
        crc = shiftByte(crc, byte);
    return shiftZeros(crc);
}

unsigned short crc16_block(std::span<const unsigned char> data)
{
    unsigned crc = 0;
    for (const unsigned char byte : data)
        crc = ((crc << kByteBits) ^ kTable[((crc >> kByteBits) ^ byte) & 0xFFU]) & 0xFFFFU;
    return static_cast<unsigned short>(crc);
}
