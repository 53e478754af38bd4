#pragma once

#include "efr32sim/Types.h"

#include <charconv>
#include <optional>
#include <string>
#include <string_view>

namespace efr32sim {
/// Takes a line apart: words at blanks; and what their texts mean. Each parser gives nothing for a bad text.
class Words
{
public:
    explicit Words(std::string_view line) : m_rest(line) {}
    /// The next word; empty at the end.
    std::string_view next();
    /// All that is left, without blanks around it.
    std::string_view rest();

private:
    std::string_view m_rest;
};

/// Decimal, or hexadecimal after "0x".
template <class Integer>
std::optional<Integer> parseNumber(std::string_view text)
{
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    if (hex)
        text.remove_prefix(2);
    Integer value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}
[[nodiscard]] std::optional<double> parseFraction(std::string_view text);
/// Pairs of hexadecimal digits, with or without blanks, colons or dots between.
[[nodiscard]] std::optional<Bytes> parseHex(std::string_view text);
/// "AA:BB:CC:DD:EE:FF", most significant byte first.
[[nodiscard]] std::optional<Address> parseAddress(std::string_view text);
/// Text in which \r, \n, \\ and \xNN stand for what they do in C.
[[nodiscard]] std::string unescape(std::string_view text);
}  // namespace efr32sim
