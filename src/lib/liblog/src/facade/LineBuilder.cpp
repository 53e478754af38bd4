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

template <class Integer>
void LineBuilder::appendDecimal(Integer value)
{
    std::array<char, kDecimalSize> digits;
    append({digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr});
}

void LineBuilder::appendFormatted(const char* format, va_list arguments)
{
    const std::size_t start = m_length;
    va_list again;
    va_copy(again, arguments);
    if (!appendSimple(format, arguments)) {
        m_length = start;
        const std::size_t room = m_limit - m_length;
        char* const text = m_text.data() + m_length;
        if (std::vsnprintf(text, room + 1, format, again) >= 0)
            m_length += strnlen(text, room);
    }
    va_end(again);
}

// Most statements use nothing but %d, %u and %s, for which the C library's generality costs more than the
// rest of the line. False at any other conversion, with part of the message written.
bool LineBuilder::appendSimple(const char* format, va_list arguments)
{
    while (const char* const mark = std::strchr(format, '%')) {
        append({format, mark});
        if (mark[1] == 'd') {
            appendDecimal(va_arg(arguments, int));
        } else if (mark[1] == 'u') {
            appendDecimal(va_arg(arguments, unsigned));
        } else if (mark[1] == 's') {
            const char* const text = va_arg(arguments, const char*);
            if (text == nullptr)
                return false;
            append({text, strnlen(text, m_limit - m_length)});
        } else {
            return false;
        }
        format = mark + 2;
    }
    append(format);
    return true;
}

void LineBuilder::endLine()
{
    m_text[m_length++] = '\n';
    m_text[m_length] = '\0';
}
