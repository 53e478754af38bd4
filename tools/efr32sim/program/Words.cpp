#include "Words.h"

#include <algorithm>

namespace efr32sim {
namespace {
constexpr std::string_view kBlanks = " \t\r";

std::optional<std::uint8_t> parseHexByte(std::string_view digits)
{
    std::uint8_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (digits.size() != 2 || error != std::errc() || end != digits.data() + 2)
        return std::nullopt;
    return value;
}
}  // namespace

std::string_view Words::next()
{
    m_rest.remove_prefix(std::min(m_rest.find_first_not_of(kBlanks), m_rest.size()));
    const std::string_view word = m_rest.substr(0, m_rest.find_first_of(kBlanks));
    m_rest.remove_prefix(word.size());
    return word;
}

std::string_view Words::rest()
{
    m_rest.remove_prefix(std::min(m_rest.find_first_not_of(kBlanks), m_rest.size()));
    const std::size_t last = m_rest.find_last_not_of(kBlanks);
    return m_rest.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

std::optional<double> parseFraction(std::string_view text)
{
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !(value >= 0 && value <= 1))
        return std::nullopt;
    return value;
}

std::optional<Bytes> parseHex(std::string_view text)
{
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
                 [](char c) { return std::string_view(" :.").find(c) == std::string_view::npos; });
    if (digits.size() % 2 != 0)
        return std::nullopt;
    Bytes bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const auto byte = parseHexByte(std::string_view(digits).substr(i, 2));
        if (!byte)
            return std::nullopt;
        bytes.push_back(*byte);
    }
    return bytes;
}

std::optional<Address> parseAddress(std::string_view text)
{
    const auto bytes = parseHex(text);
    Address address{};
    if (!bytes || bytes->size() != address.size())
        return std::nullopt;
    std::copy_n(bytes->rbegin(), address.size(), address.begin());
    return address;
}

std::string unescape(std::string_view text)
{
    std::string out;
    while (!text.empty()) {
        const std::size_t plain = std::min(text.find('\\'), text.size());
        out += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.size() < 2)
            return out += text;
        const char code = text[1];
        const auto byte = code == 'x' ? parseHexByte(text.substr(2, 2)) : std::nullopt;
        out += byte ? static_cast<char>(*byte) : code == 'r' ? '\r' : code == 'n' ? '\n' : code;
        text.remove_prefix(byte ? 4 : 2);
    }
    return out;
}
}  // namespace efr32sim
