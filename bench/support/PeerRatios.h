#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

/// Prints one table: a row for every benchmark "subject/brisca", beside it a peer "subject/<peer>" where
/// there is one, and the ratio of our time to the peer's. The benchmarks run interleaved, several times each,
/// and their medians are compared: by time on the processor, which other programs do not disturb, and by the
/// clock.
class PeerRatios : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
                std::exit(EXIT_FAILURE);
            }
            if (run.aggregate_name == "median")
                m_medians[run.run_name.function_name] = {run.GetAdjustedCPUTime(), run.GetAdjustedRealTime(),
                                                         benchmark::GetTimeUnitString(run.time_unit)};
        }
    }

    void Finalize() override
    {
        std::printf("%-32s %11s %11s   %-24s %11s %6s %6s\n", "", "CPU time", "by clock", "beside",
                    "CPU time", "ratio", "clock");
        for (const auto& [name, ours] : m_medians) {
            const std::size_t slash = name.find('/');
            if (name.substr(slash + 1) == "brisca")
                printRow(name.substr(0, slash), ours);
        }
    }

    /// Runs every benchmark that the command line selects.
    static void runAll(int argc, char** argv)
    {
        std::vector<char*> arguments(argv, argv + 1);
        char repetitions[] = "--benchmark_repetitions=9";
        char minimum[] = "--benchmark_min_time=0.05";
        char interleaved[] = "--benchmark_enable_random_interleaving=true";
        arguments.insert(arguments.end(), {repetitions, minimum, interleaved});
        arguments.insert(arguments.end(), argv + 1, argv + argc);
        int count = static_cast<int>(arguments.size());
        benchmark::Initialize(&count, arguments.data());
        PeerRatios reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
    }

private:
    struct Times
    {
        double processor;
        double clock;
        const char* unit;
    };

    void printRow(const std::string& subject, const Times& ours) const
    {
        std::printf("%-32s %8.2f %s %8.2f %s", subject.c_str(), ours.processor, ours.unit, ours.clock,
                    ours.unit);
        for (const auto& [name, peer] : m_medians) {
            if (name.starts_with(subject + "/") && !name.ends_with("/brisca"))
                std::printf("   %-24s %8.2f %s %6.2f %6.2f", name.substr(subject.size() + 1).c_str(),
                            peer.processor, peer.unit, ours.processor / peer.processor,
                            ours.clock / peer.clock);
        }
        std::printf("\n");
    }

    std::map<std::string, Times> m_medians;
};
