#pragma once

#include <string_view>

/// What the bootloader's console ends its menu with when it waits for a key.
inline constexpr std::string_view kConsolePrompt = "BL >";
