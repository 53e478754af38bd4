#include "CommandLine.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {
constexpr int kWrongUsage = 2;
constexpr const char* kUsage =
    "usage: BriscaService             run the service; on a station systemd does that: never beside it\n"
    "       BriscaService --version   print the version\n"
    "       BriscaService --help      print this";

int print(const char* text)
{
    return std::puts(text) < 0 || std::fflush(stdout) != 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
}  // namespace

std::optional<int> answerCommandLine(int argc, const char* const* argv)
{
    if (argc <= 1)
        return std::nullopt;
    const std::string_view argument = argc == 2 ? argv[1] : "";
    if (argument == "--version")
        return print("BriscaService " BRISCA_VERSION);
    if (argument == "--help")
        return print(kUsage);
    (void)std::fprintf(stderr, "%s\n", kUsage);
    return kWrongUsage;
}
