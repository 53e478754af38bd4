#include "HostLine.h"

using namespace efr32sim;

namespace {
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
