#pragma once

#include <cstdint>

/// Hands the device name of Brisca::init() to the stack: the first 31 bytes of its UTF-8 form, whatever
/// character they cut. A name that begins with 0x00 or 0xFF counts as none. Runs on the caller of the
/// local-name builders, one at a time, under the stack's locks.
/// @param length receives the number of bytes, 0 to 31; null gives null
/// @return the name, valid until the next call
std::uint8_t* giveDeviceName(std::uint8_t* length);
