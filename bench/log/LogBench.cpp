// What a log statement costs, beside the same statement of spdlog: when its level is off, and when it writes
// one line to /dev/null and flushes it.

#include "PeerRatios.h"
#include "facade/Log.h"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

BRISCA_LOG_NODE(logNode, "Bench.comm.Log");

namespace {
const auto peer =
    std::make_shared<spdlog::logger>("Bench.comm.Log", std::make_shared<spdlog::sinks::stdout_sink_mt>());

/// Standard output goes to /dev/null while this lives.
class DiscardOutput
{
public:
    DiscardOutput() : m_saved(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        std::fflush(stdout);
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    ~DiscardOutput()
    {
        std::fflush(stdout);
        dup2(m_saved, STDOUT_FILENO);
        close(m_saved);
    }
    DiscardOutput(const DiscardOutput&) = delete;
    DiscardOutput& operator=(const DiscardOutput&) = delete;

private:
    int m_saved;
};

int handle = 26;
const char* task = "BTPtoCoAP";

void disabledBrisca(benchmark::State& state)
{
    for (auto _ : state)
        BRISCA_DEBUG(logNode, "%d bytes on handle %d for '%s'", 69, handle, task);
}
BENCHMARK(disabledBrisca)->Name("disabled/brisca");

void disabledSpdlog(benchmark::State& state)
{
    for (auto _ : state)
        SPDLOG_LOGGER_CALL(peer, spdlog::level::debug, "{} bytes on handle {} for '{}'", 69, handle, task);
}
BENCHMARK(disabledSpdlog)->Name("disabled/spdlog");

/// Runs a statement that writes one line.
template <class Statement>
void writeLines(benchmark::State& state, Statement statement)
{
    const DiscardOutput discard;
    for (auto _ : state)
        statement();
}

void argumentsBrisca(benchmark::State& state)
{
    writeLines(state, [] { BRISCA_INFO(logNode, "%d bytes on handle %d for '%s'", 69, handle, task); });
}
BENCHMARK(argumentsBrisca)->Name("arguments/brisca");

void argumentsSpdlog(benchmark::State& state)
{
    writeLines(state, [] {
        SPDLOG_LOGGER_CALL(peer, spdlog::level::info, "{} bytes on handle {} for '{}'", 69, handle, task);
    });
}
BENCHMARK(argumentsSpdlog)->Name("arguments/spdlog");

void plainBrisca(benchmark::State& state)
{
    writeLines(state, [] { BRISCA_INFO(logNode, "Bootloader prompt found."); });
}
BENCHMARK(plainBrisca)->Name("plain/brisca");

void plainSpdlog(benchmark::State& state)
{
    writeLines(state, [] { SPDLOG_LOGGER_CALL(peer, spdlog::level::info, "Bootloader prompt found."); });
}
BENCHMARK(plainSpdlog)->Name("plain/spdlog");
}  // namespace

int main(int argc, char** argv)
{
    logNode->setLevel(LogLevel::Info);
    // The same columns: time, file and line, level, node.
    peer->set_pattern("%E.%e %-25s:%-4#: <%-5l> [%n] %v");
    peer->set_level(spdlog::level::info);
    PeerRatios::runAll(argc, argv);
}
