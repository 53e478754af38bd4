#pragma once

// The CRC of XMODEM-CRC: CRC-16 with polynomial 0x1021, initial value 0, no reflection and no final XOR. Any
// thread.

/// Shifts one bit (1 when @p bit is non-zero) into the CRC.
[[nodiscard]] constexpr unsigned short crc_update(unsigned short crc, int bit)
{
    constexpr unsigned kPolynomial = 0x1021;
    const unsigned shifted = (static_cast<unsigned>(crc) << 1) | (bit != 0 ? 1U : 0U);
    const unsigned shiftedOut = static_cast<unsigned>(crc) >> 15;
    return static_cast<unsigned short>(shifted ^ (kPolynomial & (0U - shiftedOut)));  // no branch to miss
}

/// CRC of @p length bytes.
[[nodiscard]] unsigned short crc16(const unsigned char* data, unsigned short length);

/// Exchanges the two bytes.
[[nodiscard]] constexpr unsigned short swap16(unsigned short value)
{
    return static_cast<unsigned short>(((value << 8) | (value >> 8)) & 0xFFFF);
}
