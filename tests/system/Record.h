#pragma once

#include <string>

/// Where the stand-in for the CoAP application notes its answers, one a line in hexadecimal, when a test has
/// made this file.
inline constexpr const char* kRecordPath = "/tmp/application.record";

inline std::string recordHex(const std::string& bytes)
{
    std::string hex;
    for (const char byte : bytes) {
        hex += "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
        hex += "0123456789abcdef"[byte & 15];
    }
    return hex;
}
