#pragma once

#include <tuple>
#include <vector>

namespace testsupport {
/// The cases of a table, each a name and the fields of these types:
///     for (const auto& [name, sent, answer] : Rows<std::string, int>{{"an empty text", "", 0}, ...})
template <class... Fields>
using Rows = std::vector<std::tuple<const char*, Fields...>>;
}  // namespace testsupport
