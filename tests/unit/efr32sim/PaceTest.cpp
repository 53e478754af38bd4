#include "HostLine.h"

#include <gtest/gtest.h>

#include <future>

using namespace efr32sim;

namespace {
using Seconds = std::chrono::duration<double>;
constexpr std::size_t kBytes = 100000;
constexpr Seconds kComputed{kBytes * 10 / 230400.0};
constexpr double kTolerance = 0.02;
constexpr int kAttempts = 3;

struct Elapsed
{
    Seconds toChip;
    Seconds toHost;
};

/// Both directions at once, as a real line carries them. The last byte to the chip is a carriage return,
/// whose prompt marks the time at which the chip has heard everything.
Elapsed transfer()
{
    Chip chip({.pace = true});
    chip.start();
    HostLine host(chip.slavePath());
    auto events = chip.follow();
    const auto start = Clock::now();
    chip.sendRaw(Bytes(kBytes, 'x'));
    auto sender = std::async(std::launch::async, [&] { host.send(std::string(kBytes - 1, 'x') + '\r'); });
    EXPECT_EQ(host.read(kBytes).size(), kBytes);
    const Seconds to_host = Clock::now() - start;
    sender.get();
    const auto prompt = events.waitFor(EventKind::Prompt);
    EXPECT_TRUE(prompt);
    return {prompt->time - start, to_host};
}

// A byte can never be early, so the lower bound holds on any machine. The schedule is absolute, so being late
// in between costs nothing; only a machine that does not run the last step in time can break the upper bound,
// and then another attempt decides.
TEST(Pace, IsTrueToTheLineInBothDirections)
{
    bool in_time = false;
    for (int attempt = 0; attempt < kAttempts && !in_time; ++attempt) {
        const Elapsed elapsed = transfer();
        ASSERT_GE(elapsed.toHost, kComputed);
        ASSERT_GE(elapsed.toChip, kComputed);
        in_time = std::max(elapsed.toHost, elapsed.toChip) <= kComputed * (1 + kTolerance);
        RecordProperty("to_host_seconds", std::to_string(elapsed.toHost.count()));
        RecordProperty("to_chip_seconds", std::to_string(elapsed.toChip.count()));
        std::printf("computed %.4f s, to the host %.4f s, to the chip %.4f s\n", kComputed.count(),
                    elapsed.toHost.count(), elapsed.toChip.count());
    }
    EXPECT_TRUE(in_time);
}
}  // namespace
