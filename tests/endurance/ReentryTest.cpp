// Any number of entries into the states: each time a phone is served, and nothing is left over.
#include "Endurance.h"

#include <random>

namespace {
using efr32sim::EventKind;

class Reentry : public Endurance
{
protected:
    Reentry() { std::ofstream(kImage) << std::string(3000, 'f'); }

    /// A phone is served; in every other round it is still connected when the next round begins.
    void serve(int round)
    {
        phone = std::make_unique<efr32sim::Phone>(chip);
        ASSERT_TRUE(phone->connect());
        requests.expectAnswer(*phone, "round " + std::to_string(round));
        if (round % 2 == 0)
            phone.reset();
    }
    void restart()
    {
        (void)client->pendingSignals();
        client->send("BriscaRestart");
        ASSERT_TRUE(awaitSignal("bleIsStarted"));
    }
    void disableAndEnable()
    {
        client->send("disableBluetooth");
        ASSERT_EQ(client->call("getBriscaState"), kDisabled);
        ASSERT_TRUE(waitUntil([this] { return chip.mode() == efr32sim::Mode::Held; }));
        (void)client->pendingSignals();
        client->send("enableBluetooth");
        ASSERT_TRUE(awaitSignal("bleIsStarted"));
    }
    void failEntry(bool lineIsGone)
    {
        if (lineIsGone)
            chip.hangUp();
        else
            std::filesystem::remove("/evse/app/bin/chp");
        client->send("BriscaRestart");
        ASSERT_EQ(client->call("getBriscaState"), kError);
        chip.plugIn();
        installApplication();
    }
    void uploadAndStart()
    {
        client->send("BriscaRestart");
        ASSERT_EQ(client->call("getBriscaState"), kBootloader);
        ASSERT_EQ(client->call("startFirmwareUpdate", kImage), "true");
        ASSERT_TRUE(awaitSignal("fwUpdateComplete true"));
        client->send("startFirmwareApp");
        ASSERT_TRUE(awaitSignal("bleIsStarted"));
    }

    std::unique_ptr<efr32sim::Phone> phone;
};

TEST_F(Reentry, ByRestart)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    for (int round = 0; round < rounds(12); ++round) {
        ASSERT_NO_FATAL_FAILURE(restart());
        ASSERT_NO_FATAL_FAILURE(serve(round));
        endRound(round);
    }
}

TEST_F(Reentry, ByDisablingAndEnabling)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    for (int round = 0; round < rounds(12); ++round) {
        ASSERT_NO_FATAL_FAILURE(disableAndEnable());
        ASSERT_NO_FATAL_FAILURE(serve(round));
        endRound(round);
    }
}

TEST_F(Reentry, ByErrorsUploadsAndRestartsInAnyOrder)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    std::mt19937 random(1);
    for (int round = 0; round < rounds(12); ++round) {
        const auto dice = random() % 4;
        SCOPED_TRACE("round " + std::to_string(round) + ", " + std::to_string(dice));
        if (dice == 0) {
            ASSERT_NO_FATAL_FAILURE(restart());
        } else if (dice == 1) {
            ASSERT_NO_FATAL_FAILURE(disableAndEnable());
        } else {
            ASSERT_NO_FATAL_FAILURE(failEntry(dice == 2));
            ASSERT_NO_FATAL_FAILURE(uploadAndStart());
        }
        ASSERT_NO_FATAL_FAILURE(serve(round));
        endRound(round);
    }
}
}  // namespace
