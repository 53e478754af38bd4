#include "HostLine.h"
#include "Rows.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace efr32sim;

namespace {
using testsupport::Rows;
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

TEST(Reset, HoldsTheChipDeafAndSilentAndForgetsAllButTheFlash)
{
    RunningChip running;
    auto events = running.chip.follow();
    running.host->command(0xFF, 0x00, {5, 10, 1, 2, 3, 4});
    running.host->command(0x03, 0x0F, {0, 1});
    running.host->command(0x03, 0x14, {0, 4, 2});
    running.chip.setReset(false);
    EXPECT_FALSE(running.chip.air().advertising);
    EXPECT_EQ(running.chip.air().channelMap, 7);
    running.host->sendCommand(0x01, 0x00);
    EXPECT_TRUE(events.waitFor(EventKind::Unheard));
    running.chip.setReset(true);
    running.host->set(HostLine::kConsole);
    running.host->send("2");
    ASSERT_TRUE(testsupport::waitUntil([&] { return running.chip.mode() == Mode::Booting; }));
    running.host->set(HostLine::kCoprocessor);
    EXPECT_EQ(running.host->readPacket(), running.bootEvent);
    EXPECT_EQ(running.host->command(0xFF, 0x00, {1, 11}), "2009ff000000060b0001020304");
}

TEST(Line, ReplacesTheLinkOfAnEarlierRunButNoFile)
{
    const testsupport::TempDir directory;
    const std::string path = directory.file("tty");
    std::filesystem::create_symlink("/nowhere", path);
    Chip chip({.ttyPath = path});
    chip.start();
    EXPECT_EQ(std::filesystem::read_symlink(path), chip.slavePath());
    chip.stop();
    directory.write("tty", "precious");
    EXPECT_THROW(chip.start(), std::exception);
    EXPECT_EQ(testsupport::readFile(path), "precious");
}

TEST(Line, WithOtherSettingsOfTheHostIsReportedAndUseless)
{
    for (const auto& [name, settings, garbage] :
         Rows<HostSettings, bool>{{"half the speed", {115200, false, false}, true},
                                  {"two stop bits", {230400, false, true}, true},
                                  {"flow control", {230400, true, false}, false}}) {
        SCOPED_TRACE(name);
        Bench bench;
        auto events = bench.chip.follow();
        bench.host->set(settings);
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
        const std::string heard = garbage ? bench.host->read(4) : bench.host->read(1, Milliseconds(50));
        EXPECT_EQ(heard.size(), garbage ? 4U : 0U);
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

TEST(Chip, StartsAndStopsWithoutLeavingAnythingBehind)
{
    const testsupport::TempDir directory;
    Chip kept({.ttyPath = directory.file("tty"), .resetPath = directory.file("reset"), .chaosSeed = 1});
    kept.start();
    kept.stop();
    const std::size_t descriptors = testsupport::entriesOf("/proc/self/fd");
    const std::size_t threads = testsupport::entriesOf("/proc/self/task");
    for (int i = 0; i < 50; ++i) {  // a hundred starts and stops
        kept.start();
        Chip fresh;
        fresh.start();
        kept.stop();
    }
    EXPECT_EQ(testsupport::entriesOf("/proc/self/fd"), descriptors);
    EXPECT_EQ(testsupport::entriesOf("/proc/self/task"), threads);
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
