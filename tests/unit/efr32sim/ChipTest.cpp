#include "HostLine.h"
#include "TempDir.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace efr32sim;
using namespace std::chrono_literals;

namespace {
TEST(Console, ShowsMenuAndPromptOnCarriageReturn)
{
    Chip chip;
    chip.start();
    HostLine host(chip.slavePath());
    host.send("\r");
    EXPECT_EQ(host.readUntil("BL >"), ChipOptions{}.menu + "BL >");
}

TEST(Firmware, SendsItsBootEventAfterTheBootDelay)
{
    RunningChip running;
    EXPECT_EQ(running.bootEvent,
              "a00e0100"
              "0200"
              "0d00"
              "0700"
              "8000"
              "00020901"
              "0100");
}
}  // namespace
