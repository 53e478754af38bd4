#include "StringUtils.h"

#include "facade/Log.h"

BRISCA_LOG_NODE(logNode, "Utils.StringUtils");

namespace StringUtils {
bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.starts_with(prefix);
}

bool endsWith(std::string_view text, std::string_view suffix)
{
    return text.ends_with(suffix);
}

std::vector<std::string> split(std::string_view text, char delimiter)
{
    std::vector<std::string> pieces;
    std::size_t first = text.find_first_not_of(delimiter);
    while (first != std::string_view::npos) {
        const std::size_t end = std::min(text.find(delimiter, first), text.size());
        pieces.emplace_back(text.substr(first, end - first));
        first = text.find_first_not_of(delimiter, end);
    }
    BRISCA_TRACE(logNode, "split into %zu pieces at '%c'", pieces.size(), delimiter);
    return pieces;
}

std::string joinPath(const std::string& dir, const std::string& name)
{
    const bool dirEnds = endsWith(dir, "/");
    const bool nameStarts = startsWith(name, "/");
    if (!dirEnds && !nameStarts)
        return dir + "/" + name;
    if (dirEnds && nameStarts)
        return dir.substr(0, dir.size() - 1) + name;
    return dir + name;
}
}  // namespace StringUtils
