#pragma once

#include <string>
#include <string_view>

/// Text from outside (a name, a path, a word of a file) as it may stand in a log line: control characters
/// become "\n", "\t" or "\x1B", a backslash is doubled, so that no text can begin a line of its own or move
/// a terminal's cursor. UTF-8 beyond that stays as it is. Any thread.
[[nodiscard]] std::string printable(std::string_view text);
