#include "BluetoothManager.h"
#include "IoEfr32Manager.h"
#include "LinuxOutputPin.h"
#include "Testing.h"
#include "facade/LogFacade.h"

#include <sys/inotify.h>
#include <sys/time.h>

namespace {
using Clock = std::chrono::steady_clock;

constexpr auto kPulse = 100ms;

/// A pin that notes when it was driven.
class RecordingPin : public OutputPinI
{
public:
    void setHigh() override { set(true); }
    void setLow() override { set(false); }
    void set(bool value) override
    {
        levels.push_back(value);
        times.push_back(Clock::now());
    }

    std::vector<bool> levels;
    std::vector<Clock::time_point> times;
};

/// What happened to a watched file, a word an event.
std::vector<std::string> fileEvents(int watch)
{
    alignas(inotify_event) char buffer[4096];
    const ssize_t size = ::read(watch, buffer, sizeof buffer);
    std::vector<std::string> result;
    for (ssize_t at = 0; at < size; at += static_cast<ssize_t>(sizeof(inotify_event))) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
        result.push_back(event->mask & IN_OPEN ? "open" : event->mask & IN_MODIFY ? "write" : "close");
    }
    return result;
}

TEST(OutputPin, OpensWritesOneByteAndClosesForEachChange)
{
    const TempDir directory;
    const std::string path = directory.write("pin", "");
    const UniqueFd watch(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    ASSERT_GE(::inotify_add_watch(watch.get(), path.c_str(), IN_OPEN | IN_MODIFY | IN_CLOSE_WRITE), 0);
    LinuxOutputPin pin(path.c_str());
    const std::pair<std::function<void()>, const char*> changes[] = {{[&] { pin.setLow(); }, "0"},
                                                                     {[&] { pin.setHigh(); }, "1"},
                                                                     {[&] { pin.set(false); }, "0"},
                                                                     {[&] { pin.set(true); }, "1"}};
    for (const auto& [change, level] : changes) {
        change();
        EXPECT_THAT(fileEvents(watch.get()), ElementsAre("open", "write", "close"));
        EXPECT_EQ(readFile(path), level);
        (void)fileEvents(watch.get());  // of the look at the file
    }
}

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
    EXPECT_GE(pin.times[1] - pin.times[0], kPulse);
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

TEST(ResetLine, TellsTheBluetoothManagerThatItsStackIsDown)
{
    LogFacade::setLevel("BriscaService.comm.BluetoothManager", LogLevel::Debug);
    RecordingPin pin;
    IoEfr32Manager manager(pin);
    for (const bool hold : {true, false}) {
        BluetoothManager::instance().bleIsReady();
        StdoutCapture log;
        manager.resetEfr32(hold);
        log.clear();
        BluetoothManager::instance().stop();
        EXPECT_FALSE(log.contains("Stop the BLE stack")) << "still believed to be started";
    }
}
}  // namespace
