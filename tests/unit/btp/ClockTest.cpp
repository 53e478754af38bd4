#include "BTP_Platform.h"
#include "Testing.h"

namespace {
TEST(Clock, SubtractsTimesOfDay)
{
    for (const auto& [name, now, start, expected, result] : Rows<GClock, GClock, GClock, int>{
             {"no borrow", {5, 20}, {4, 10}, {1, 10}, 1},
             {"equal", {5, 20}, {5, 20}, {0, 0}, 1},
             {"the borrow adds 65536 seconds in milliseconds", {5, 10}, {4, 990}, {0, 65'535'020}, 1},
             {"set back by milliseconds", {5, 10}, {5, 20}, {0, 0}, 0},
             {"set back by seconds", {4, 20}, {5, 10}, {0, 0}, 0},
         }) {
        SCOPED_TRACE(name);
        GClock elapsed{77, 77};
        EXPECT_EQ(BTPSubTime(&now, &start, &elapsed), result);
        EXPECT_EQ(elapsed.seconds, expected.seconds);
        EXPECT_EQ(elapsed.milliseconds, expected.milliseconds);
    }
}

TEST(Clock, TellsTheTimeOfDayAndRefusesNullPointers)
{
    GClock clock{};
    const auto before = static_cast<std::uint32_t>(std::time(nullptr));
    ASSERT_EQ(BTPGetTime(&clock), 1);
    EXPECT_GE(clock.seconds, before);
    EXPECT_LT(clock.milliseconds, 1000U);
    const StdoutCapture output;
    EXPECT_EQ(GClockGetTime(nullptr), 0);
    EXPECT_EQ(GClockSubTime(&clock, nullptr, &clock), 0);
    std::fflush(stdout);
    EXPECT_EQ(output.text(), "[GClockGetTime] null pointer[GClockSubTime] null pointer\n");
}
}  // namespace
