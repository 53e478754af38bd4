#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Small helpers for text. Any thread.
namespace StringUtils {
/// Whether @p text begins with @p prefix; false when it is shorter.
[[nodiscard]] bool startsWith(std::string_view text, std::string_view prefix);
/// Whether @p text ends with @p suffix; false when it is shorter.
[[nodiscard]] bool endsWith(std::string_view text, std::string_view suffix);
/// The non-empty pieces of @p text between runs of one delimiter character, in order.
[[nodiscard]] std::vector<std::string> split(std::string_view text, char delimiter);
/// A directory and a name with exactly one '/' between.
[[nodiscard]] std::string joinPath(const std::string& dir, const std::string& name);
}  // namespace StringUtils
