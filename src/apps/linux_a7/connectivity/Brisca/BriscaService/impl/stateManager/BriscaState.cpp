#include "BriscaState.h"

#include <array>

namespace {
constexpr std::array<const char*, 5> kStateNames = {"DEFAULT", "BOOTLOADER", "FIRMWARE", "DISABLED", "ERROR"};
}

std::string to_string(BriscaState state)
{
    const auto value = static_cast<unsigned>(state);
    return value < kStateNames.size() ? kStateNames[value] : "Undefined:" + std::to_string(value);
}
