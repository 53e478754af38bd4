// Firmware updates over the bus.
#include "Station.h"

namespace {
using efr32sim::EventKind;

class Update : public Station
{
protected:
    /// What the shipped level shows of updates, behind a mark.
    [[nodiscard]] std::vector<std::string> course(std::size_t from) const
    {
        return linesWith({"BootloaderState] Firmware update", "BootloaderState] A firmware"}, from);
    }
    static std::string writeImage(std::size_t size)
    {
        std::string image = testsupport::content(size);
        std::ofstream(kImage) << image;
        return image;
    }
    /// Each answer that the chip loses behind the fifth block is a second of silence.
    void loseAnswers(unsigned count)
    {
        chip.inject({.kind = efr32sim::FaultKind::XmodemAnswer, .count = count, .skip = 5, .bytes = {}});
    }
};

constexpr std::size_t kBlock = 128;

TEST_F(Update, UploadsTheFileAndTellsItsSuccess)
{
    startService();
    const std::size_t size = 300 * kBlock + 17;  // block numbers wrap, the last block is filled up
    const auto image = writeImage(size);
    const auto before = mark();
    auto events = chip.follow();
    EXPECT_EQ(client->call("startFirmwareUpdate", kImage), "true");
    EXPECT_EQ(client->waitSignal(), "fwUpdateComplete true");
    ASSERT_TRUE(events.waitFor(EventKind::UploadComplete)) << "the end of the transfer is still on its way";
    const auto stored = chip.image();
    ASSERT_EQ(stored.size(), (size + kBlock - 1) / kBlock * kBlock);
    EXPECT_TRUE(std::string(stored.begin(), stored.end()).substr(0, size) == image)
        << "the stored image differs from the file";
    EXPECT_THAT(linesWith({"BriscaDbus] "}, before),
                ElementsAre(HasSubstr("Start firmware update"), HasSubstr("Signal Fw update success sent")));
    EXPECT_THAT(
        course(before),
        ElementsAre(HasSubstr("<NOTIC> [BriscaService.states.BootloaderState] Firmware update started: "
                              "/tmp/image.gbl, 38417 bytes"),
                    HasSubstr(": 25 % after "), HasSubstr(": 50 %"), HasSubstr(": 75 %"),
                    HasSubstr("finished after ")));
    EXPECT_EQ(client->call("getBriscaState"), kBootloader);
    client->send("startFirmwareApp");
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
}

TEST_F(Update, ThatIsGivenUpLeavesAConsoleThatAnswersAtOnce)
{
    startService();
    for (const bool refused : {true, false}) {
        writeImage(20 * kBlock);
        if (refused)
            chip.inject({.kind = efr32sim::FaultKind::XmodemAnswer, .count = 0, .skip = 5, .bytes = {0x18}});
        else
            loseAnswers(9);
        const auto before = mark();
        EXPECT_EQ(client->call("startFirmwareUpdate", kImage), "true");
        if (!refused) {
            std::filesystem::resize_file(kImage, 10 * kBlock);
            chip.clearFaults();
        }
        EXPECT_EQ(client->waitSignal(), "fwUpdateComplete false");
        EXPECT_THAT(client->call("getFirmwareVersion"), HasSubstr("application"));
        EXPECT_TRUE(waitLog("<DEBUG> [BriscaService.comm.BriscaDbus] Signal Fw update failed sent", before));
        EXPECT_THAT(course(before).back(),
                    HasSubstr(refused ? "at block 6 of 20, repeated 55 times: refused by the chip"
                                      : "at block 11 of 20, repeated 0 times: the file has become shorter"));
        chip.clearFaults();
    }
    writeImage(kBlock);
    EXPECT_EQ(client->call("startFirmwareUpdate", kImage), "true");
    EXPECT_EQ(client->waitSignal(), "fwUpdateComplete true");
}

TEST_F(Update, WhoseChipIsResetIsToldAsSilentAndEndedByARestart)
{
    startService();
    writeImage(40 * kBlock);  // the blocks that may be answered before the reset are less than a quarter
    loseAnswers(9);
    auto events = chip.follow();
    const auto before = mark();
    EXPECT_EQ(client->call("startFirmwareUpdate", kImage), "true");
    ASSERT_TRUE(events.waitFor(EventKind::UploadStarted));
    chip.setReset(false);
    chip.clearFaults();
    chip.inject({.kind = efr32sim::FaultKind::SilentReset});
    chip.setReset(true);
    EXPECT_EQ(client->call("startFirmwareUpdate", kImage), "true");
    EXPECT_TRUE(waitLog("nothing heard from the chip", before));
    client->send("BriscaRestart");
    EXPECT_EQ(client->waitSignal(), "fwUpdateComplete false");
    const auto lines = course(before);
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_THAT(lines[1],
                HasSubstr("<WARN > [BriscaService.states.BootloaderState] A firmware update is running"));
    EXPECT_THAT(lines[2],
                HasSubstr("<WARN > [BriscaService.states.BootloaderState] Firmware update: nothing"));
    EXPECT_THAT(lines[3], testing::ContainsRegex(
                              "<ERROR>.*: not answered for [1-9][0-9]+ s, cancelled by BriscaRestart"));
    EXPECT_EQ(client->call("startFirmwareUpdate", kImage), "true");
    EXPECT_EQ(client->waitSignal(), "fwUpdateComplete true");
}
}  // namespace
