#include "node/LogLevel.h"

#include <algorithm>
#include <array>

namespace {
// "NOTIC" has five letters so that every name fits the "%-5s" column of the output line.
constexpr std::array<const char*, 10> kLevelNames = {"NONE", "EMERG", "FATAL", "CRIT",  "ERROR",
                                                     "WARN", "NOTIC", "INFO",  "DEBUG", "TRACE"};

/// -1 for a text that is no level.
int indexOf(const char* text)
{
    if (text[0] >= '0' && text[0] <= '9')
        return text[0] - '0';
    const auto* const found =
        std::ranges::find_if(kLevelNames, [text](const char* name) { return level_strcmp(name, text) == 0; });
    return found == kLevelNames.end() ? -1 : static_cast<int>(found - kLevelNames.begin());
}
}  // namespace

const char* level_to_string(LogLevel level)
{
    return kLevelNames[static_cast<unsigned>(level)];
}

LogLevel level_from_string(const char* text)
{
    return static_cast<LogLevel>(std::max(indexOf(text), 0));
}

bool is_level(const char* text)
{
    return indexOf(text) >= 0;
}

int level_strcmp(const char* tableWord, const char* text)
{
    for (; *tableWord != '\0' && *text != '\0'; ++tableWord, ++text) {
        if (*tableWord != *text)
            return 1;
    }
    return 0;
}
