#include "HostLine.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace efr32sim;

namespace {
std::string pattern(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
    return bytes;
}

class ForeignSender : public testing::TestWithParam<std::size_t>
{
};

TEST_P(ForeignSender, UploadArrivesWhole)
{
    const testsupport::TempDir directory;
    const std::string content = pattern(GetParam());
    const std::string file = directory.write("image", content);
    Chip chip({.xmodemPing = Milliseconds(50)});
    chip.start();
    HostLine host(chip.slavePath());
    host.send("1");
    host.readUntil("begin upload\r\n");
    const std::string command =
        "timeout 60 sx -q " + file + " <" + chip.slavePath() + " >" + chip.slavePath() + " 2>/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0) << chip.events().dump();
    auto events = chip.followFromStart();
    ASSERT_TRUE(events.waitFor(EventKind::UploadComplete)) << chip.events().dump();
    const Bytes image = chip.image();
    ASSERT_EQ(image.size(), (content.size() + 127) / 128 * 128);
    EXPECT_EQ(std::string(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(content.size())),
              content);
}

INSTANTIATE_TEST_SUITE_P(Sizes, ForeignSender, testing::Values(0, 1, 127, 128, 129, 300000));
}  // namespace
