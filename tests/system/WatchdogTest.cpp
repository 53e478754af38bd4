// When systemd's watchdog is fed, and when not.
#include "Station.h"

#include <sys/ptrace.h>

namespace {
using efr32sim::EventKind;

using Watchdog = Station;

const Process::Environment kWatched = {"WATCHDOG_USEC=2000000"};

TEST_F(Watchdog, IsFedUntilTheChipFreezesTheEventLoop)
{
    const auto begin = std::chrono::steady_clock::now();
    startService({"WATCHDOG_USEC=200000"});
    for (int ping = 0; ping < 30; ++ping)
        EXPECT_EQ(notify.wait(), "WATCHDOG=1");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(29 * 25))
        << "fed with every event";
    chip.inject({.kind = efr32sim::FaultKind::SilentReset, .count = 0});
    auto events = chip.follow();
    client->send("BriscaRestart");
    ASSERT_TRUE(events.waitFor(EventKind::ResetHigh));
    notify.drain();
    EXPECT_EQ(notify.wait(std::chrono::seconds(1)), "") << "a ping from a frozen event loop";
    EXPECT_TRUE(service->isRunning());
}

TEST_F(Watchdog, IsFedBetweenTheRequestsOfABurst)
{
    for (const auto& [state, request, count, line] :
         {std::tuple("BOOTLOADER", "BriscaRestart", 700U, "Success at retry"),
          std::tuple("FIRMWARE", "disconnectBleDevice", 1000U, "Device disconnection asked")}) {
        SCOPED_TRACE(request);
        ASSERT_NO_FATAL_FAILURE(startIn(state, kWatched));
        const auto before = mark();
        for (unsigned sent = 0; sent < count; ++sent)
            client->send(request);
        ASSERT_TRUE(waitLog(line, before));
        notify.drain();
        for (int ping = 0; ping < 3; ++ping)
            EXPECT_EQ(notify.wait(), "WATCHDOG=1");
        EXPECT_LT(linesWith({line}, before).size(), count) << "only after the burst";
        service.reset();
    }
}

TEST_F(Watchdog, IsNotFedWhileTheEventPumpHangs)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE", kWatched));
    const auto threads = service->threads();
    const pid_t pump = threads.at(threads.size() - 3);  // the last of five tasks but two; one has ended
    ASSERT_EQ(::ptrace(PTRACE_SEIZE, pump, nullptr, nullptr), 0);
    ASSERT_EQ(::ptrace(PTRACE_INTERRUPT, pump, nullptr, nullptr), 0);
    ASSERT_TRUE(waitUntil([this] {
        return log().find("No sign of life of the event pump for 10 s, systemd's watchdog is not fed") !=
               std::string::npos;
    }));
    notify.drain();
    EXPECT_EQ(notify.wait(std::chrono::seconds(1)), "") << "two feedings";
    EXPECT_EQ(client->call("getBriscaState"), kFirmware) << "the event loop turns";
    ASSERT_EQ(::ptrace(PTRACE_DETACH, pump, nullptr, nullptr), 0);
    EXPECT_EQ(notify.wait(), "WATCHDOG=1");
}

TEST_F(Watchdog, IsNotFedWhileAnUploadHearsNothing)
{
    if (std::getenv("BRISCA_ROUNDS") == nullptr)
        GTEST_SKIP() << "a minute, for the long form";
    ASSERT_NO_FATAL_FAILURE(startService(kWatched));
    std::ofstream(kImage) << std::string(100'000, 'f');
    auto events = chip.follow();
    ASSERT_EQ(client->call("startFirmwareUpdate", kImage), "true");
    ASSERT_TRUE(events.waitFor(EventKind::UploadStarted));
    chip.setReset(false);
    ASSERT_TRUE(waitUntil(
        [this] {
            return log().find("No sign of life of the chip during the upload for 60 s") != std::string::npos;
        },
        std::chrono::seconds(90)));
    notify.drain();
    EXPECT_EQ(notify.wait(std::chrono::seconds(2)), "");
    EXPECT_TRUE(service->isRunning());
}
}  // namespace
