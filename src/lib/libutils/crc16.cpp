#include "crc16.h"

#include <span>

namespace {
constexpr int kByteBits = 8;
constexpr int kCrcBits = 16;
}  // namespace

unsigned short crc16(const unsigned char* data, unsigned short length)
{
    unsigned short crc = 0;
    for (const unsigned char byte : std::span(data, length)) {
        for (int bit = kByteBits - 1; bit >= 0; --bit)
            crc = crc_update(crc, (byte >> bit) & 1);
    }
    for (int bit = 0; bit < kCrcBits; ++bit)
        crc = crc_update(crc, 0);
    return crc;
}
