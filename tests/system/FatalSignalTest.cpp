// Fatal signals on the main thread and on a task of the BLE stack.
#include "Station.h"

#include <sys/syscall.h>

namespace {
class FatalSignal : public Station, public testing::WithParamInterface<std::tuple<int, bool>>
{
protected:
    // The handler's exit() destroys static objects under running tasks, deliberately.
    FatalSignal() { ::setenv("TSAN_OPTIONS", "report_bugs=0", 1); }
};

TEST_P(FatalSignal, LeavesItsLineABacktraceAndStatusOne)
{
    const auto [signal, onTask] = GetParam();
    for (int round = 0; round < setting("BRISCA_ROUNDS", 1); ++round) {
        ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
        const auto before = mark();
        // The tasks are the youngest threads.
        const auto threads = service->threads();
        const pid_t target =
            onTask ? threads[threads.size() - 1 - static_cast<unsigned>(round) % 3] : threads.front();
        ::syscall(SYS_tgkill, service->pid(), target, signal);
        ASSERT_EQ(service->waitEnd(kPatience), "exit 1");
        EXPECT_THAT(linesWith({"detected in brisca"}, before),
                    ElementsAre("<FATAL> [BriscaService.main] Signal " + std::to_string(signal) +
                                " detected in brisca service."));
        EXPECT_GE(linesWith({"BriscaService(", "libc.so"}, before).size(), 2U) << "no backtrace";
        EXPECT_TRUE(waitUntil([] { return Process::running(APPLICATION_PROGRAM).empty(); }));
        service.reset();
        (void)client->pendingSignals();
    }
}

INSTANTIATE_TEST_SUITE_P(Crashes, FatalSignal,
                         testing::Combine(testing::Values(SIGSEGV, SIGABRT, SIGILL), testing::Bool()));
}  // namespace
