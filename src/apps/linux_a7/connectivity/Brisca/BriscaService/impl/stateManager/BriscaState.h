#pragma once

#include <string>

/// State of the service. The values are part of the bus interface: "getBriscaState" returns them as they are.
enum BriscaState : int {
    DEFAULT = 0,  ///< before the first transition; has no handler and is never entered
    BOOTLOADER = 1,
    FIRMWARE = 2,
    DISABLED = 3,
    ERROR = 4,
};

/// Name of a state as the log prints it; a value without a name gives "Undefined:" and the value as unsigned
/// decimal. Any thread.
[[nodiscard]] std::string to_string(BriscaState state);
