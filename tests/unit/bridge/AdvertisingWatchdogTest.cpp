#include "AdvertisingWatchdog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {
using namespace std::chrono_literals;

TEST(AdvertisingWatchdogTest, AlarmsAfterTenSecondsOfSilence)
{
    const struct
    {
        const char* name;
        std::string seconds;  // what the watchdog sees: '.' on the air or stopped, 's' silent
        std::vector<int> alarms;
    } rows[] = {{"never while on the air", "...............", {}},
                {"after ten seconds", ".ssssssssssss", {11}},
                {"not when the silence ends in time", "ssssssssss.sssss", {}},
                {"again after ten more", "sssssssssssssssssssssssss", {10, 20}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const AdvertisingWatchdog::Clock::time_point start{};
        AdvertisingWatchdog watchdog;
        std::vector<int> alarms;
        int looks = 0;
        for (int second = 0; second < static_cast<int>(row.seconds.size()); ++second) {
            const auto isSilent = [&] {
                ++looks;
                return row.seconds[static_cast<std::size_t>(second)] == 's';
            };
            for (auto within = 0ms; within < 1s; within += 10ms)
                if (watchdog.tick(start + std::chrono::seconds(second) + within, isSilent))
                    alarms.push_back(second);
        }
        EXPECT_EQ(alarms, row.alarms);
        EXPECT_EQ(looks, static_cast<int>(row.seconds.size())) << "a look takes a lock: one a second";
    }
}
}  // namespace
