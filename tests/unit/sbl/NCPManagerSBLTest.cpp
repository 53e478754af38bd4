#include "GBSSlave.h"
#include "LineOwner.h"
#include "NCPDriver.h"
#include "NCPManagerSBL.h"
#include "Testing.h"
#include "efr32sim/Chip.h"
#include "uart_posix.h"

namespace {
using efr32sim::Bytes;

Bytes makeImage(std::size_t size)
{
    const std::string content = testsupport::content(size);
    return {content.begin(), content.end()};
}

/// A chip whose firmware runs, with the line to it held.
class SerialBootloader : public testing::Test
{
protected:
    SerialBootloader()
    {
        chip.start();
        auto events = chip.followFromStart();
        EXPECT_TRUE(events.waitFor(efr32sim::EventKind::BootSent));
        EXPECT_EQ(NCPDriver_Init(chip.slavePath().c_str()), 1U);
    }
    ~SerialBootloader() override
    {
        if (HasFailure())
            std::puts(chip.events().dump().c_str());
        LineOwner::letGo();
    }

    // This path keeps the co-processor's line settings in the bootloader.
    efr32sim::Chip chip{
        {.checkLine = false, .powerOn = efr32sim::Mode::Firmware, .bootDelay = efr32sim::Milliseconds(0)}};
};

TEST_F(SerialBootloader, TakesImagesAndStartsThem)
{
    unsigned uploads = 0;
    for (const auto& [name, size, blocks, shown] : Rows<std::size_t, std::size_t, const char*>{
             {"whole blocks without padding", 256, 2, "\r50%06H \r100%06H "},
             {"the last block keeps the rest of the one before", 130, 2, "\r98%06H \r100%06H "},
             {"progress is rounded down", 1000, 8,
              "\r12%06H \r25%06H \r38%06H \r51%06H \r64%06H \r76%06H \r89%06H \r100%06H "},
         }) {
        SCOPED_TRACE(name);
        const Bytes image = makeImage(size);
        // One pad byte behind the image, and behind that what the block before left in its place.
        Bytes expected = image;
        if (image.size() % kSblBlockDataSize != 0)
            expected.push_back(0x1A);
        while (expected.size() < blocks * kSblBlockDataSize)
            expected.push_back(
                expected.size() < kSblBlockDataSize ? 0 : image[expected.size() - kSblBlockDataSize]);

        const StdoutCapture output;
        EXPECT_EQ(NCPManagerSBL_FWUpgrade(image.data(), static_cast<std::uint32_t>(image.size())), 1U);
        EXPECT_EQ(chip.imageCount(), ++uploads);
        EXPECT_EQ(chip.image(), expected);
        EXPECT_EQ(chip.mode(), efr32sim::Mode::Firmware);
        EXPECT_EQ(NCPManagerSBL_GetIsBootloaderMode(), 0);

        std::string progress = output.text();
        EXPECT_THAT(progress, HasSubstr("\nForce to bootloader"));
        EXPECT_THAT(progress, HasSubstr("\nSend EOT!06H \r\nSerial upload complete"));
        EXPECT_THAT(progress, testing::EndsWith("Run exploit SUCCESS!!!"));
        // What lies between start and end is the progress and the echo of each acknowledgement.
        progress.erase(progress.find("\nSend EOT!"));
        progress.erase(0, progress.find("success!") + 8);
        EXPECT_EQ(progress, shown);
    }
}

TEST_F(SerialBootloader, StopsAtABlockThatIsRefusedAndStaysInTheBootloader)
{
    const Bytes image = makeImage(300);
    const StdoutCapture output;
    chip.inject({.kind = efr32sim::FaultKind::CorruptBlock});
    EXPECT_EQ(NCPManagerSBL_FWUpgrade(image.data(), static_cast<std::uint32_t>(image.size())), 0U);
    EXPECT_THAT(output.text(), HasSubstr("\r42%15H "));
    EXPECT_THAT(output.text(), testing::EndsWith("Can't receive ACK"));
    EXPECT_EQ(NCPManagerSBL_GetIsBootloaderMode(), 1);
    EXPECT_EQ(chip.imageCount(), 0U);
}

/// A peer that says nothing by itself.
class SilentPeer : public testing::Test
{
protected:
    SilentPeer() { EXPECT_EQ(NCPDriver_Init(pty.slavePath().c_str()), 1U); }
    ~SilentPeer() override { LineOwner::letGo(); }

    Pty pty;
};

TEST_F(SilentPeer, GetsThreeResetsAndNothingElse)
{
    StdoutCapture output;
    EXPECT_EQ(NCPManagerSBL_GotoBootloader(), 0U);
    const std::string reset("\x20\x01\x00\x00\x01", 5);
    EXPECT_EQ(pty.readAvailable(), reset + reset + reset);
    const std::string failed = "\nNCP goto bootloader failed!!!";
    EXPECT_EQ(output.text(), "\nForce to bootloader" + failed + failed + failed);

    output.clear();
    const std::uint8_t block[kSblBlockDataSize] = {};
    EXPECT_EQ(NCPManagerSBL_GetIsBootloaderMode(), 0);
    EXPECT_EQ(NCPManagerSBL_StartUpgrade(), 0U);
    EXPECT_EQ(NCPManagerSBL_SendBlock(block), 0U);
    EXPECT_EQ(NCPManagerSBL_SendEOT(), 0U);
    EXPECT_EQ(NCPManagerSBL_RunApp(), 0U);
    EXPECT_EQ(pty.readAvailable(), "");
    EXPECT_EQ(output.text(), "");
}

TEST_F(SilentPeer, KeepsTheModeWhenThePromptComesBackInsteadOfTheApplication)
{
    const StdoutCapture output;
    std::thread bootloader([this] {
        EXPECT_EQ(pty.read(5).size(), 5U);
        pty.write("BL >");
        EXPECT_EQ(pty.read(1), "2");
        pty.write(std::string("\x01\xFF\0No application\r\nBL > ", 24));
    });
    EXPECT_EQ(NCPManagerSBL_GotoBootloader(), 1U);
    EXPECT_EQ(NCPManagerSBL_RunApp(), 0U);
    bootloader.join();
    EXPECT_EQ(NCPManagerSBL_GetIsBootloaderMode(), 1);
    LineOwner::resumeEvents();
    pty.write("BL >");
    EXPECT_TRUE(waitUntil([] { return uartRxPeek() == 4; }));
    GBSSlave_TreatEvent();
    EXPECT_EQ(uartRxPeek(), 4) << "the event pump leaves the bootloader's text alone";
    EXPECT_THAT(output.text(), testing::EndsWith("\nRun exploit...01H \xFF"
                                                 "00H No application\r\nBL > Run exploit FAILED!"));
}
}  // namespace
