// What the command files of the co-processor share.
#pragma once

#include "Coprocessor.h"

namespace efr32sim {
inline Bytes result(CommandResult value)
{
    return Writer().u16(static_cast<std::size_t>(value)).take();
}

inline Bytes result(bool good, CommandResult otherwise)
{
    return result(good ? CommandResult::Success : otherwise);
}

/// A result followed by an empty array, for failed commands whose response has one.
inline Bytes emptyArray(CommandResult value)
{
    return Writer().u16(static_cast<std::size_t>(value)).array({}).take();
}
}  // namespace efr32sim
