// What the whole service costs a station: start-up, and an hour-long idle seen through ten seconds of it.
#include "Station.h"
#include "TempDir.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

namespace {
using efr32sim::EventKind;
using Seconds = std::chrono::duration<double>;

constexpr int kStarts = 21;
constexpr std::chrono::seconds kIdle{10};
constexpr double kReadyTargetMs = 20;
constexpr double kCpuTargetPercent = 1;
constexpr double kResidentTargetMb = 20;

void print(const char* what, double figure, const char* unit, double target = 0)
{
    std::printf("%-58s %9.2f %-4s", what, figure, unit);
    if (target > 0)
        std::printf(" (to stay below %g, %.0f %%)", target, 100 * figure / target);
    std::printf("\n");
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct Usage
{
    double cpuSeconds = 0;
    double wakeUps = 0;
};

/// A line "name: number ..." of a file of /proc.
double field(const std::string& path, const std::string& name)
{
    const std::string text = testsupport::readFile(path);
    const auto at = text.find(name + ":");
    return at == std::string::npos ? 0 : std::stod(text.substr(at + name.size() + 1));
}

class Measurement : public Station
{
public:
    void run()
    {
        std::ofstream("/evse/data/log.cfg") << "GLOBAL : NOTICE\n";
        measureStarts();
        startIn("FIRMWARE");
        measureIdle();
    }

private:
    void TestBody() override {}

    void measureStarts()
    {
        std::vector<double> all;
        std::vector<double> own;
        for (int round = 0; round < kStarts; ++round) {
            auto events = chip.follow();
            const auto begin = std::chrono::steady_clock::now();
            startService();
            const double ready = Seconds(std::chrono::steady_clock::now() - begin).count() * 1e3;
            const auto pulse = events.waitFor(EventKind::ResetLow);
            const auto prompt = events.waitFor(EventKind::Prompt);
            if (!pulse || !prompt)
                return;
            all.push_back(ready);
            own.push_back(ready - Seconds(prompt->time - pulse->time).count() * 1e3);
            service.reset();
        }
        print("start to READY=1, median", median(all), "ms");
        print("  of it beyond the reset pulse and the chip's answer", median(own), "ms", kReadyTargetMs);
    }

    Usage usage() const
    {
        Usage sum;
        for (const pid_t thread : service->threads()) {
            const std::string path =
                "/proc/" + std::to_string(service->pid()) + "/task/" + std::to_string(thread);
            std::istringstream schedule(testsupport::readFile(path + "/schedstat"));
            double nanoseconds = 0;
            schedule >> nanoseconds;
            sum.cpuSeconds += nanoseconds * 1e-9;
            sum.wakeUps += field(path + "/status", "voluntary_ctxt_switches");
        }
        return sum;
    }

    void measureIdle()
    {
        const Usage before = usage();
        std::this_thread::sleep_for(kIdle);
        const Usage after = usage();
        const double seconds = Seconds(kIdle).count();
        const std::string status = "/proc/" + std::to_string(service->pid()) + "/status";
        print("FIRMWARE, idle: one core", 100 * (after.cpuSeconds - before.cpuSeconds) / seconds, "%",
              kCpuTargetPercent);
        print("FIRMWARE, idle: wake-ups a second", (after.wakeUps - before.wakeUps) / seconds, "");
        print("FIRMWARE: resident memory", field(status, "VmRSS") / 1024, "MB", kResidentTargetMb);
        print("  of it anonymous, the rest is shared with files", field(status, "RssAnon") / 1024, "MB");
        print("FIRMWARE: threads", static_cast<double>(service->threads().size()), "");
    }
};
}  // namespace

int main()
{
    Measurement().run();
    return testing::Test::HasFailure() ? 1 : 0;
}
