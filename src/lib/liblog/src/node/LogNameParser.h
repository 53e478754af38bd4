#pragma once

#include <string_view>

/// Cursor over the components of a dotted log-node name, which need not be NUL-terminated.
class LogNameParser
{
public:
    /// @param name   the dotted name; it must outlive the parser
    /// @param length its length in characters; -1 takes the name as NUL-terminated
    LogNameParser(const char* name, int length);

    /// Moves to the next component; false when there is none left.
    [[nodiscard]] bool next();

    /// The current component; empty before the first next() and for two dots in a row.
    [[nodiscard]] std::string_view component() const;

private:
    const char* m_start;
    int m_length;
    int m_delimiter = -1;  // position of the delimiter that ends the current component
    int m_componentLength = 0;
};
