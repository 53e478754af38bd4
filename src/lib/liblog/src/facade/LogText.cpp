#include "facade/LogText.h"

namespace {
constexpr unsigned char kDelete = 0x7F;
constexpr unsigned char kLeadOfC1 = 0xC2;  // UTF-8 writes U+0080 to U+009F as 0xC2 and the number itself
constexpr unsigned char kFirstC1 = 0x80;
constexpr unsigned char kLastC1 = 0x9F;

bool isControl(unsigned char byte, unsigned char before)
{
    return byte < ' ' || byte == kDelete || (before == kLeadOfC1 && byte >= kFirstC1 && byte <= kLastC1);
}

std::string escaped(unsigned char byte)
{
    constexpr const char* kHexDigits = "0123456789ABCDEF";
    switch (byte) {
        case '\n':
            return "\\n";
        case '\t':
            return "\\t";
        default:
            return {'\\', 'x', kHexDigits[byte >> 4U], kHexDigits[byte & 15U]};
    }
}
}  // namespace

std::string printable(std::string_view text)
{
    std::string result;
    unsigned char before = 0;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (isControl(byte, before)) {
            if (byte >= kFirstC1)
                result.pop_back();  // the lead byte, which alone is no character
            result += escaped(byte);
        } else {
            result += byte == '\\' ? "\\\\" : std::string(1, character);
        }
        before = byte;
    }
    return result;
}
