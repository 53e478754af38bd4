#include "HostLine.h"
#include "TempDir.h"
#include "efr32sim/Phone.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <filesystem>

using namespace efr32sim;
using testing::EndsWith;
using testing::HasSubstr;

namespace {
std::size_t entriesOf(const char* directory)
{
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

/// A chip that has started, and its line as the console's user opens it.
struct Bench
{
    explicit Bench(ChipOptions options = {}) : chip(std::move(options))
    {
        chip.start();
        host.emplace(chip.slavePath());
    }
    Chip chip;
    std::optional<HostLine> host;
};

TEST(Reset, TheFirstResetsCanStaySilent)
{
    Bench bench;
    auto events = bench.chip.follow();
    bench.chip.inject({.kind = FaultKind::SilentReset, .count = 2});
    for (int i = 0; i < 3; ++i) {
        bench.chip.setReset(false);
        bench.chip.setReset(true);
        bench.host->send("\r");
    }
    EXPECT_THAT(bench.host->readUntil("BL >"), EndsWith("BL >"));
    EXPECT_EQ(events.drain(EventKind::Prompt), 1U);
}

TEST(Reset, TheFifoHoldsAndReleasesTheChip)
{
    const testsupport::TempDir directory;
    const std::string path = directory.file("reset");
    Bench bench({.resetPath = path});
    auto events = bench.chip.follow();
    const auto write = [&path](const char* level) {
        const testsupport::UniqueFd pin(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
        ASSERT_EQ(::write(pin.get(), level, 1), 1);
    };
    write("0");
    const auto low = events.waitFor(EventKind::ResetLow);
    ASSERT_TRUE(low);
    EXPECT_EQ(low->text("was"), "bootloader");
    EXPECT_EQ(bench.chip.mode(), Mode::Held);
    bench.host->send("\r");
    ASSERT_TRUE(events.waitFor(EventKind::Unheard)) << "a held chip hears nothing";
    write("1");
    const auto high = events.waitFor(EventKind::ResetHigh);
    ASSERT_TRUE(high);
    EXPECT_GT(high->time, low->time);
    bench.host->send("\r");
    EXPECT_EQ(bench.host->readUntil("BL >"), ChipOptions{}.menu + "BL >") << "and says nothing";
    bench.chip.stop();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(Reset, ForgetsAllButTheFlash)
{
    RunningChip running;
    running.host->command(0xFF, 0x00, {5, 10, 1, 2, 3, 4});
    running.host->command(0x03, 0x0F, {0, 1});
    running.host->command(0x03, 0x14, {0, 4, 2});
    running.chip.setReset(false);
    EXPECT_FALSE(running.chip.air().advertising);
    EXPECT_EQ(running.chip.air().channelMap, 7);
    running.chip.setReset(true);
    running.host->set(HostLine::kConsole);
    running.host->send("2");
    ASSERT_TRUE(testsupport::waitUntil([&] { return running.chip.mode() == Mode::Booting; }));
    running.host->set(HostLine::kCoprocessor);
    EXPECT_EQ(running.host->readPacket(), running.bootEvent);
    EXPECT_EQ(running.host->command(0xFF, 0x00, {1, 11}), "2009ff000000060b0001020304");
}

TEST(Line, LinkFollowsTheLineAndGoesWithIt)
{
    const testsupport::TempDir directory;
    const std::string link = directory.file("tty");
    std::filesystem::create_symlink("/nowhere", link);  // left behind by an earlier run
    Bench bench({.ttyPath = link});
    EXPECT_EQ(std::filesystem::read_symlink(link), bench.chip.slavePath());
    bench.chip.hangUp();
    EXPECT_FALSE(std::filesystem::is_symlink(link));
    EXPECT_EQ(bench.host->read(1), "");
    char byte = 0;
    EXPECT_LE(::read(bench.host->fd(), &byte, 1), 0) << "a hung-up line must not look quiet";
    bench.chip.plugIn();
    HostLine again(link);
    again.send("\r");
    EXPECT_THAT(again.readUntil("BL >"), EndsWith("BL >"));
    bench.chip.stop();
    EXPECT_FALSE(std::filesystem::is_symlink(link));
}

TEST(Line, AFileIsNotReplacedByTheLink)
{
    const testsupport::TempDir directory;
    Chip chip({.ttyPath = directory.write("tty", "precious")});
    EXPECT_THROW(chip.start(), std::exception);
    EXPECT_EQ(testsupport::readFile(directory.file("tty")), "precious");
}

TEST(Line, WithOtherSettingsOfTheHostIsReportedAndUseless)
{
    const struct
    {
        const char* name;
        HostSettings settings;
        bool garbage;  // the host reads garbage; otherwise nothing
    } rows[] = {{"half the speed", {115200, false, false}, true},
                {"two stop bits", {230400, false, true}, true},
                {"flow control", {230400, true, false}, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Bench bench;
        auto events = bench.chip.follow();
        bench.host->set(row.settings);
        ASSERT_TRUE(bench.chip.sendRaw(Bytes{'B', 'L', ' ', '>'}));
        auto mismatch = events.waitFor(EventKind::LineMismatch);
        ASSERT_TRUE(mismatch);
        EXPECT_EQ(mismatch->text("chip"), "230400 8N1");
        EXPECT_EQ(mismatch->text("direction"), "to_host");
        // The first key may pass for the settings of a moment ago.
        const auto toChip = [](const Event& event) { return event.text("direction") == "to_chip"; };
        bool reported = false;
        for (int key = 0; key < 20 && !reported; ++key) {
            bench.host->send("\r");
            reported = events.waitFor(EventKind::LineMismatch, toChip, Milliseconds(500)).has_value();
        }
        EXPECT_TRUE(reported);
        const std::string heard = row.garbage ? bench.host->read(4) : bench.host->read(1, Milliseconds(50));
        EXPECT_EQ(heard.size(), row.garbage ? 4U : 0U);
        EXPECT_EQ(heard.find_first_of("BL >"), std::string::npos);
    }
}

TEST(Line, TheFirmwareNeedsFlowControlAt115200)
{
    RunningChip running({.bootDelay = RunningChip::kUnhurried});
    auto events = running.chip.follow();
    running.host->set({115200, false, false});
    running.chip.sendBurst(1);
    EXPECT_TRUE(events.waitFor(EventKind::LineMismatch));
    running.host->set(HostLine::kCoprocessor);
    EXPECT_EQ(running.host->command(0x01, 0x00), "200201000000");
}

TEST(SerialBootloader, TakesAnUploadOnTheFirmwaresLine)
{
    RunningChip running({.bootDelay = RunningChip::kUnhurried});
    HostLine& host = *running.host;
    host.sendCommand(0x00, 0x00, {1});
    EXPECT_EQ(host.readUntil("BL >"), ChipOptions{}.menu + "BL >") << "without being asked";
    host.send("1");
    EXPECT_THAT(host.readUntil("C"), EndsWith("C"));
    std::string block{0x01, 0x01, static_cast<char>(0xFE)};
    host.send(block + std::string(128, '\0') + std::string(2, '\0'));
    EXPECT_EQ(host.read(1), "\x06");
    host.send("\x04");
    EXPECT_THAT(host.readUntil("BL >"), HasSubstr("complete"));
    host.send("2");
    EXPECT_EQ(host.read(1), " ");
    EXPECT_EQ(host.readPacket(), running.bootEvent);
    EXPECT_EQ(running.chip.image(), Bytes(128));
}

TEST(Chip, StartsAndStopsWithoutLeavingAnythingBehind)
{
    const testsupport::TempDir directory;
    Chip kept({.ttyPath = directory.file("tty"), .resetPath = directory.file("reset"), .chaosSeed = 1});
    kept.start();
    kept.stop();
    const std::size_t descriptors = entriesOf("/proc/self/fd");
    const std::size_t threads = entriesOf("/proc/self/task");
    for (int i = 0; i < 50; ++i) {  // a hundred starts and stops
        kept.start();
        Chip fresh;
        fresh.start();
        kept.stop();
    }
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
    EXPECT_EQ(entriesOf("/proc/self/task"), threads);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(Chaos, IsTheSameForTheSameSeed)
{
    const auto faultsOf = [](std::uint64_t seed) {
        Bench bench({.powerOn = Mode::Held, .chaosSeed = seed, .chaosRate = 0.2});
        for (int i = 0; i < 50; ++i) {
            bench.chip.setReset(true);
            bench.chip.setReset(false);
        }
        std::vector<int> faults;  // number of the reset that each one hit
        int resets = 0;
        for (const Event& event : bench.chip.events().history()) {
            resets += event.kind == EventKind::ResetHigh ? 1 : 0;
            if (event.kind == EventKind::Fault)
                faults.push_back(resets);
        }
        return faults;
    };
    const auto first = faultsOf(7);
    EXPECT_FALSE(first.empty());
    EXPECT_EQ(first, faultsOf(7));
    EXPECT_NE(first, faultsOf(8));
}
}  // namespace
