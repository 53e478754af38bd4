#pragma once

// The CRC of XMODEM-CRC: CRC-16 with polynomial 0x1021, initial value 0, no reflection and no final XOR. Any
// thread.

/// Shifts one bit (1 when @p bit is non-zero) into the CRC.
[[nodiscard]] constexpr unsigned short crc_update(unsigned short crc, int bit)
{
    constexpr unsigned kPolynomial = 0x1021;
    constexpr unsigned kTopBit = 0x8000;
    const unsigned shifted = ((crc << 1) | (bit != 0 ? 1U : 0U)) & 0xFFFFU;
    return static_cast<unsigned short>((crc & kTopBit) != 0 ? shifted ^ kPolynomial : shifted);
}

/// CRC of @p length bytes.
[[nodiscard]] unsigned short crc16(const unsigned char* data, unsigned short length);

/// Exchanges the two bytes.
[[nodiscard]] constexpr unsigned short swap16(unsigned short value)
{
    return static_cast<unsigned short>(((value << 8) | (value >> 8)) & 0xFFFF);
}
