#include "AdvertisingWatchdog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {
using namespace std::chrono_literals;

/// What the watchdog sees from one second to the next: '.' on the air or stopped, 's' silent.
struct WatchCase
{
    const char* name;
    const char* seconds;
    std::vector<int> alarms;  // at which seconds
};

void PrintTo(const WatchCase& row, std::ostream* out)
{
    *out << row.name;
}

class AdvertisingWatchdogCases : public testing::TestWithParam<WatchCase>
{
};

TEST_P(AdvertisingWatchdogCases, Alarms)
{
    const std::string seconds = GetParam().seconds;
    const AdvertisingWatchdog::Clock::time_point start{};
    AdvertisingWatchdog watchdog;
    std::vector<int> alarms;
    int looks = 0;
    for (int second = 0; second < static_cast<int>(seconds.size()); ++second) {
        const auto isSilent = [&] {
            ++looks;
            return seconds[static_cast<std::size_t>(second)] == 's';
        };
        for (auto within = 0ms; within < 1s; within += 10ms)
            if (watchdog.tick(start + std::chrono::seconds(second) + within, isSilent))
                alarms.push_back(second);
    }
    EXPECT_EQ(alarms, GetParam().alarms);
    EXPECT_EQ(looks, static_cast<int>(seconds.size())) << "a look takes a lock: one a second is enough";
}

INSTANTIATE_TEST_SUITE_P(Watchdog, AdvertisingWatchdogCases,
                         testing::Values(WatchCase{"NeverWhileOnTheAir", "...............", {}},
                                         WatchCase{"AfterTenSecondsOfSilence", ".ssssssssssss", {11}},
                                         WatchCase{"NotWhenTheSilenceEndsInTime", "ssssssssss.sssss", {}},
                                         WatchCase{
                                             "AgainAfterTenMore", "sssssssssssssssssssssssss", {10, 20}}),
                         [](const auto& instance) { return std::string(instance.param.name); });
}  // namespace
