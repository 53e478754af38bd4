#pragma once

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

/// Prints, below the usual table, the ratio of our time to a peer's for every pair of benchmarks
/// "subject/brisca" and "subject/<peer>". The pairs run interleaved, several times each, and their medians
/// are compared: by time on the processor, which other programs do not disturb, and by time on the clock.
class PeerRatios : public benchmark::ConsoleReporter
{
public:
    PeerRatios() : ConsoleReporter(isatty(STDOUT_FILENO) != 0 ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                m_medians[run.run_name.function_name] = {run.GetAdjustedCPUTime(), run.GetAdjustedRealTime()};
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        for (const auto& [name, time] : m_medians) {
            const std::string subject = name.substr(0, name.find('/') + 1);
            const auto ours = m_medians.find(subject + "brisca");
            if (ours != m_medians.end() && name != ours->first)
                std::printf("%-24s %5.2f x %s (by the clock %.2f x)\n", ours->first.c_str(),
                            ours->second.processor / time.processor, name.substr(subject.size()).c_str(),
                            ours->second.clock / time.clock);
        }
    }

    /// Runs every benchmark that the command line selects.
    static void runAll(int argc, char** argv)
    {
        std::vector<char*> arguments(argv, argv + 1);
        char repetitions[] = "--benchmark_repetitions=9";
        char minimum[] = "--benchmark_min_time=0.05";
        char interleaved[] = "--benchmark_enable_random_interleaving=true";
        char aggregates[] = "--benchmark_display_aggregates_only=true";
        arguments.insert(arguments.end(), {repetitions, minimum, interleaved, aggregates});
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
    };

    std::map<std::string, Times> m_medians;
};
