#include "CommandLine.h"

#include "conf/LogConf.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {
constexpr int kWrongUsage = 2;
constexpr const char* kUsage =
    "usage: BriscaService             run the service; on a station systemd does that: never beside it\n"
    "       BriscaService --version   print the version\n"
    "       BriscaService --check-log FILE   print what is wrong with a log configuration\n"
    "       BriscaService --help      print this";

int print(const char* text)
{
    return std::puts(text) < 0 || std::fflush(stdout) != 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}

/// One line a fault, on standard output.
int checkLog(const char* path)
{
    int status = EXIT_SUCCESS;
    for (const std::string& fault : LogConf::check(path))
        status = std::max(status, print(fault.c_str()));
    return status;
}
}  // namespace

std::optional<int> answerCommandLine(int argc, const char* const* argv)
{
    if (argc <= 1)
        return std::nullopt;
    if (argc == 3 && std::string_view(argv[1]) == "--check-log")
        return checkLog(argv[2]);
    const std::string_view argument = argc == 2 ? argv[1] : "";
    if (argument == "--version")
        return print("BriscaService " BRISCA_VERSION);
    if (argument == "--help")
        return print(kUsage);
    (void)std::fprintf(stderr, "%s\n", kUsage);
    return kWrongUsage;
}
