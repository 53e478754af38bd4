// Any number of entries into the states: each time a phone is served, and nothing is left over.
#include "Endurance.h"

#include <random>

namespace {
class Reentry : public Endurance
{
protected:
    Reentry() { std::ofstream(kImage) << std::string(3000, 'f'); }

    /// A phone is served; in every other round it is still connected when the next round begins.
    void serve(int round)
    {
        phone = std::make_unique<efr32sim::Phone>(chip);
        ASSERT_TRUE(phone->connect());
        expectAnswer(*phone, "round " + std::to_string(round));
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
    /// An entry that fails, and an upload on the way back.
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
        client->send("BriscaRestart");
        ASSERT_EQ(client->call("getBriscaState"), kBootloader);
        ASSERT_EQ(client->call("startFirmwareUpdate", kImage), "true");
        ASSERT_TRUE(awaitSignal("fwUpdateComplete true"));
        client->send("startFirmwareApp");
        ASSERT_TRUE(awaitSignal("bleIsStarted"));
    }

    /// Each round goes one of the ways.
    void reenter(const std::vector<std::function<void()>>& ways)
    {
        ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
        std::mt19937 random(1);
        for (int round = 0; round < rounds(12); ++round) {
            const auto dice = random() % ways.size();
            SCOPED_TRACE("round " + std::to_string(round) + ", " + std::to_string(dice));
            ASSERT_NO_FATAL_FAILURE(ways[dice]());
            ASSERT_NO_FATAL_FAILURE(serve(round));
            endRound(round);
        }
    }

    std::unique_ptr<efr32sim::Phone> phone;
};

TEST_F(Reentry, ByRestart)
{
    reenter({[this] { restart(); }});
}

TEST_F(Reentry, ByDisablingAndEnabling)
{
    reenter({[this] { disableAndEnable(); }});
}

TEST_F(Reentry, ByErrorsUploadsAndRestartsInAnyOrder)
{
    reenter({[this] { restart(); }, [this] { disableAndEnable(); }, [this] { failEntry(true); },
             [this] { failEntry(false); }});
}
}  // namespace
