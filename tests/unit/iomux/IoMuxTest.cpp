#include "IoEfr32Manager.h"
#include "LinuxOutputPin.h"
#include "Testing.h"

#include <sys/time.h>

namespace {
/// A pin that notes when it was driven.
class RecordingPin : public OutputPinI
{
public:
    void setHigh() override { set(true); }
    void setLow() override { set(false); }
    void set(bool value) override
    {
        levels.push_back(value);
        times.push_back(std::chrono::steady_clock::now());
    }

    std::vector<bool> levels;
    std::vector<std::chrono::steady_clock::time_point> times;
};

TEST(ResetLine, PulsesLowForOneHundredMillisecondsAlsoWhenSignalsArrive)
{
    struct sigaction onAlarm = {};
    onAlarm.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &onAlarm, nullptr);
    const itimerval everyTenMs = {{0, 10'000}, {0, 10'000}};
    const itimerval off = {};
    RecordingPin pin;
    ::setitimer(ITIMER_REAL, &everyTenMs, nullptr);
    IoEfr32Manager(pin).resetEfr32(false);
    ::setitimer(ITIMER_REAL, &off, nullptr);
    ASSERT_THAT(pin.levels, ElementsAre(false, true));
    EXPECT_GE(pin.times[1] - pin.times[0], 100ms);
}

TEST(ResetLine, LogsEachChangeOfAMissingPinAndGoesOn)
{
    const std::string line = "<ERROR> [LinuxOutputPin] Unable to access GPIO /nowhere/reset";
    LinuxOutputPin pin("/nowhere/reset");
    IoEfr32Manager manager(pin);
    const StdoutCapture log;
    manager.resetEfr32(true);
    EXPECT_EQ(log.count(line), 1);
    manager.resetEfr32(false);
    EXPECT_EQ(log.count(line), 3);
}
}  // namespace
