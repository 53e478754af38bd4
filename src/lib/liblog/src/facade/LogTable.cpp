#include "facade/LogTable.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {
/// Appends what fits; returns the new length, which never passes outSize - 1.
std::size_t append(char* out, std::size_t used, std::size_t outSize, const char* text)
{
    const std::size_t count = std::min(std::strlen(text), outSize - 1 - used);
    std::copy_n(text, count, out + used);
    return used + count;
}
}  // namespace

template <>
char* log_table2str_impl<unsigned char>(const unsigned char* data, int end, int start, char* out,
                                        std::size_t outSize, const char* format)
{
    if (outSize == 0)
        return out;
    std::memset(out, 0, outSize);
    std::size_t used = append(out, 0, outSize, "{ ");
    for (int i = start; i < end && used < outSize - 1; ++i) {
        if (i > start)
            used = append(out, used, outSize, ", ");
        const int wanted = std::snprintf(out + used, outSize - used, format, data[i]);
        used = std::min(used + static_cast<std::size_t>(std::max(wanted, 0)), outSize - 1);
    }
    append(out, used, outSize, " }");
    return out;
}
