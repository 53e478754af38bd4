#include "facade/LineBuilder.h"

#include <charconv>
#include <cstdio>

namespace {
constexpr std::size_t kNumberWidth = 4;
constexpr std::size_t kDecimalSize = 12;  // of any 32-bit number
}  // namespace

void LineBuilder::appendNumber(unsigned value)
{
    std::array<char, kNumberWidth + kDecimalSize> digits = {'0', '0', '0'};
    char* const first = digits.data() + kNumberWidth - 1;
    const char* const end = std::to_chars(first, digits.data() + digits.size(), value).ptr;
    const auto leadingZeros =
        std::max<std::ptrdiff_t>(0, static_cast<std::ptrdiff_t>(kNumberWidth) - (end - first));
    append({first - leadingZeros, end});
}

void LineBuilder::appendFormatted(const char* format, va_list arguments)
{
    const std::size_t room = m_limit - m_length;
    char* const text = m_text.data() + m_length;
    if (std::vsnprintf(text, room + 1, format, arguments) >= 0)
        m_length += strnlen(text, room);
}

void LineBuilder::endLine()
{
    m_text[m_length++] = '\n';
    m_text[m_length] = '\0';
}
