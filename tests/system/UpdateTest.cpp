// Firmware updates over the bus.
#include "Station.h"

#include <gmock/gmock.h>

#include <fstream>

namespace {
using efr32sim::EventKind;
using testing::ElementsAre;
using testing::HasSubstr;
using Update = Station;

constexpr std::size_t kBlock = 128;

efr32sim::Bytes writeImage(const char* path, std::size_t size)
{
    efr32sim::Bytes image(size);
    unsigned seed = 1;
    for (auto& byte : image) {
        seed = seed * 1103515245 + 12345;
        byte = static_cast<std::uint8_t>(seed >> 16);
    }
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(image.data()), static_cast<long>(size));
    return image;
}

TEST_F(Update, UploadsTheFileAndTellsItsSuccess)
{
    startService();
    const std::size_t size = 300 * kBlock + 17;  // block numbers wrap, the last block is filled up
    const auto image = writeImage(kImage, size);
    const auto before = mark();
    auto events = chip.follow();
    EXPECT_EQ(client->call("startFirmwareUpdate", kImage), "true");
    EXPECT_EQ(client->waitSignal(), "fwUpdateComplete true");
    ASSERT_TRUE(events.waitFor(EventKind::UploadComplete)) << "the end of the transfer is still on its way";
    auto stored = chip.image();
    ASSERT_EQ(stored.size(), (size + kBlock - 1) / kBlock * kBlock);
    stored.resize(size);
    EXPECT_TRUE(stored == image) << "the stored image differs from the file";
    EXPECT_THAT(linesWith({"BriscaDbus] "}, before),
                ElementsAre(HasSubstr("Start firmware update"), HasSubstr("Signal Fw update success sent")));
    EXPECT_EQ(client->call("getBriscaState"), kBootloader);
    client->send("startFirmwareApp");
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
}

TEST_F(Update, ThatTheChipRefusesIsToldAsAFailureAndCanBeRepeated)
{
    startService();
    writeImage(kImage, 20 * kBlock);
    chip.inject({.kind = efr32sim::FaultKind::XmodemAnswer, .count = 0, .skip = 5, .bytes = {0x18}});
    EXPECT_EQ(client->call("startFirmwareUpdate", kImage), "true");
    EXPECT_EQ(client->waitSignal(), "fwUpdateComplete false");
    EXPECT_TRUE(waitLog("<DEBUG> [BriscaService.comm.BriscaDbus] Signal Fw update failed sent"));
    EXPECT_EQ(client->call("getBriscaState"), kBootloader);
    chip.clearFaults();
    client->send("BriscaRestart");
    EXPECT_EQ(client->call("startFirmwareUpdate", kImage), "true");
    EXPECT_EQ(client->waitSignal(), "fwUpdateComplete true");
}
}  // namespace
