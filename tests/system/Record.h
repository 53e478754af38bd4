#pragma once

#include <string>

// What the stand-in for the CoAP application notes about each request, when a test has made this file: one
// line each with the monotonic time in ns, a word and the bytes in hexadecimal.
inline constexpr const char* kRecordPath = "/tmp/application.record";
inline constexpr const char* kRequestWord = "request";
inline constexpr const char* kAnswerWord = "answer";

inline std::string recordHex(const std::string& bytes)
{
    std::string hex;
    for (const char byte : bytes) {
        hex += "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
        hex += "0123456789abcdef"[byte & 15];
    }
    return hex;
}

inline std::string fromRecordHex(const std::string& hex)
{
    std::string bytes;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    return bytes;
}
