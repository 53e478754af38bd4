#pragma once

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <string_view>

/// Builds one line of the log from left to right in a buffer of its own. Text that reaches over the limit in
/// force is cut there. No heap; one thread.
class LineBuilder
{
public:
    /// Longest line in front of its line feed, in characters.
    static constexpr std::size_t kTextLimit = 1021;

    /// Sets the column that no text passes, at most kTextLimit; what stands there already is not cut.
    void setLimit(std::size_t limit) { m_limit = limit; }
    /// Goes on at this column: what has been written behind it is dropped.
    void seek(std::size_t column) { m_length = column; }

    void append(std::string_view text)
    {
        const std::size_t count = std::min(text.size(), m_limit - m_length);
        std::memcpy(m_text.data() + m_length, text.data(), count);
        m_length += count;
    }
    /// Fills up with spaces, nothing when the line is longer already.
    void padTo(std::size_t column)
    {
        while (m_length < column)
            m_text[m_length++] = ' ';
    }
    /// Decimal with at least four digits.
    void appendNumber(unsigned value);
    /// What printf would print of the format and its arguments, up to the first NUL.
    void appendFormatted(const char* format, va_list arguments);
    /// Adds line feed and terminator, for which the limit leaves room.
    void endLine();

    [[nodiscard]] std::string_view text() const { return {m_text.data(), m_length}; }

private:
    std::size_t m_limit = kTextLimit;
    std::size_t m_length = 0;
    std::array<char, 1024> m_text;
};
