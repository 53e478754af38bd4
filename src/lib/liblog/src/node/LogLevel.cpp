#include "node/LogLevel.h"

#include <array>

namespace {
// "NOTIC" has five letters so that every name fits the "%-5s" column of the output line.
constexpr std::array<const char*, 10> kLevelNames = {"NONE", "EMERG", "FATAL", "CRIT",  "ERROR",
                                                     "WARN", "NOTIC", "INFO",  "DEBUG", "TRACE"};
}  // namespace

const char* level_to_string(LogLevel level)
{
    return kLevelNames[static_cast<unsigned>(level)];
}

LogLevel level_from_string(const char* text)
{
    if (text[0] >= '0' && text[0] <= '9')
        return static_cast<LogLevel>(text[0] - '0');
    for (unsigned index = 0; index < kLevelNames.size(); ++index) {
        if (level_strcmp(kLevelNames[index], text) == 0)
            return static_cast<LogLevel>(index);
    }
    return LogLevel::None;
}

int level_strcmp(const char* tableWord, const char* text)
{
    for (; *tableWord != '\0' && *text != '\0'; ++tableWord, ++text) {
        if (*tableWord != *text)
            return 1;
    }
    return 0;
}
