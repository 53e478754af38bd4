#include "BluetoothManager.h"
#include "IoEfr32Manager.h"
#include "LinuxOutputPin.h"
#include "Testing.h"
#include "facade/LogFacade.h"

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

TEST(ResetLine, LogsEachChangeOfAMissingPinAndTellsThatTheStackIsDownAllTheSame)
{
    LogFacade::setLevel("BriscaService.comm.BluetoothManager", LogLevel::Debug);
    LinuxOutputPin pin("/nowhere/reset");
    IoEfr32Manager manager(pin);
    const StdoutCapture log;
    for (const bool hold : {true, false}) {
        BluetoothManager::instance().bleIsReady();
        manager.resetEfr32(hold);
        EXPECT_EQ(log.count("<ERROR> [LinuxOutputPin] Unable to access GPIO /nowhere/reset"), hold ? 1 : 3);
        BluetoothManager::instance().stop();
    }
    EXPECT_FALSE(log.contains("Stop the BLE stack")) << "still believed to be started";
}
}  // namespace
