#pragma once

#include <optional>

/// Answers a question from a shell: "--help", "--version", "--check-log", and anything else with the usage on
/// standard error. To be asked before anything is touched: a station may be running beside.
/// @return the status with which the process is to end at once; nothing when there is no argument
[[nodiscard]] std::optional<int> answerCommandLine(int argc, const char* const* argv);
