#include "node/LogNameParser.h"

#include <cstring>

LogNameParser::LogNameParser(const char* name, int length)
    : m_start(name), m_length(length == -1 ? static_cast<int>(std::strlen(name)) : length)
{
}

bool LogNameParser::next()
{
    if (m_delimiter >= m_length)
        return false;
    const int first = m_delimiter + 1;
    int end = first;
    while (end < m_length && m_start[end] != '.')
        ++end;
    m_delimiter = end;
    m_componentLength = end - first;
    return true;
}

std::string_view LogNameParser::component() const
{
    return {m_start + (m_delimiter - m_componentLength), static_cast<std::size_t>(m_componentLength)};
}
