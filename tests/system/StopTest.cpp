// SIGTERM and SIGINT in every state.
#include "Station.h"

namespace {
using efr32sim::EventKind;

struct Moment
{
    const char* name;
    const char* state;
    bool connected;
    bool uploading;
    bool blocked;  ///< in the wait for the prompt of a silent chip
};
class Stop : public Station, public testing::WithParamInterface<Moment>
{
protected:
    void reach(efr32sim::Phone& phone)
    {
        ASSERT_NO_FATAL_FAILURE(startIn(GetParam().state));
        auto events = chip.follow();
        if (GetParam().connected) {
            ASSERT_TRUE(phone.connect());
            ASSERT_EQ(client->waitSignal(), "btDeviceConnected");
        }
        if (GetParam().uploading) {
            std::ofstream(kImage) << std::string(8'000'000, 'f');
            ASSERT_EQ(client->call("startFirmwareUpdate", kImage), "true");
            ASSERT_TRUE(events.waitFor(EventKind::UploadStarted));
        }
        if (GetParam().blocked) {
            chip.inject({.kind = efr32sim::FaultKind::SilentReset, .count = 0});
            client->send("BriscaRestart");
            ASSERT_TRUE(events.waitFor(EventKind::ResetHigh));
        }
    }
};

TEST_P(Stop, EndsWithStatusZeroInTimeAndLeavesNoChild)
{
    SCOPED_TRACE(GetParam().name);
    for (int round = 0; round < setting("BRISCA_ROUNDS", 2); ++round) {
        efr32sim::Phone phone(chip);
        ASSERT_NO_FATAL_FAILURE(reach(phone));
        const auto before = mark();
        service->kill(round % 2 == 0 ? SIGTERM : SIGINT);
        ASSERT_EQ(service->waitEnd(kPatience), "exit 0");
        EXPECT_TRUE(waitUntil([] { return Process::running(APPLICATION_PROGRAM).empty(); }));
        EXPECT_EQ(log().find("Service stopped", before) != std::string::npos, !GetParam().blocked);
        EXPECT_EQ(linesWith({"detected in brisca service", "ERROR: "}, before), std::vector<std::string>());
        EXPECT_EQ(notify.wait(), "STOPPING=1");
        service.reset();
        chip.clearFaults();
        (void)client->pendingSignals();
    }
}

INSTANTIATE_TEST_SUITE_P(Moments, Stop,
                         testing::Values(Moment{"idle in BOOTLOADER", "BOOTLOADER", false, false, false},
                                         Moment{"idle in FIRMWARE", "FIRMWARE", false, false, false},
                                         Moment{"idle in DISABLED", "DISABLED", false, false, false},
                                         Moment{"connected", "FIRMWARE", true, false, false},
                                         Moment{"uploading", "BOOTLOADER", false, true, false},
                                         Moment{"blocked in BOOTLOADER", "BOOTLOADER", false, false, true},
                                         Moment{"blocked in FIRMWARE", "FIRMWARE", false, false, true}));

using StopDuringStartUp = Station;

TEST_F(StopDuringStartUp, IsNotForgotten)
{
    for (int round = 0; round < setting("BRISCA_ROUNDS", 2); ++round) {
        auto events = chip.follow();
        service = std::make_unique<Process>(std::vector<std::string>{SERVICE_PROGRAM}, kLog);
        ASSERT_TRUE(events.waitFor(EventKind::ResetLow));
        service->kill(SIGTERM);
        EXPECT_EQ(service->waitEnd(kPatience), "exit 0");
        EXPECT_EQ(linesWith({"Service stopped"}).size(), static_cast<std::size_t>(round) + 1);
    }
}
}  // namespace
