// Fatal signals on the main thread and on a task of the BLE stack, in two states.
#include "Station.h"

#include <sys/syscall.h>

#include <cstring>

namespace {
struct Crash
{
    int signal;
    bool onTask;
    bool inFirmware;
};
void PrintTo(const Crash& row, std::ostream* out)
{
    *out << "SIG" << ::sigabbrev_np(row.signal) << (row.onTask ? " on a task" : " on the main thread")
         << (row.inFirmware ? " in FIRMWARE" : " in BOOTLOADER");
}
std::vector<Crash> allCrashes()
{
    std::vector<Crash> rows;
    for (const int signal : {SIGSEGV, SIGABRT, SIGILL}) {
        for (const bool onTask : {false, true}) {
            for (const bool inFirmware : {false, true})
                rows.push_back({signal, onTask, inFirmware});
        }
    }
    return rows;
}
class FatalSignal : public Station, public testing::WithParamInterface<Crash>
{
protected:
    // The handler's exit() destroys static objects under running tasks, deliberately.
    FatalSignal() { ::setenv("TSAN_OPTIONS", "report_bugs=0", 1); }

    /// To BOOTLOADER with the tasks of the BLE stack, which live on once FIRMWARE has been entered.
    void reach()
    {
        ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
        if (GetParam().inFirmware)
            return;
        client->send("disableBluetooth");
        client->send("BriscaRestart");
        ASSERT_EQ(client->call("getBriscaState"), kBootloader);
    }
};

TEST_P(FatalSignal, LeavesItsLineABacktraceAndStatusOne)
{
    const char* const asked = std::getenv("BRISCA_ROUNDS");
    const int rounds = asked != nullptr ? std::atoi(asked) : 1;
    for (int round = 0; round < rounds; ++round) {
        ASSERT_NO_FATAL_FAILURE(reach());
        const auto before = mark();
        // The tasks are the youngest threads.
        const auto threads = service->threads();
        const pid_t target = GetParam().onTask
                                 ? threads[threads.size() - 1 - static_cast<unsigned>(round) % 3]
                                 : threads.front();
        ::syscall(SYS_tgkill, service->pid(), target, GetParam().signal);
        ASSERT_EQ(service->waitEnd(kPatience), "exit 1");
        EXPECT_THAT(linesWith({"detected in brisca"}, before),
                    ElementsAre("<FATAL> [BriscaService.main] Signal " + std::to_string(GetParam().signal) +
                                " detected in brisca service."));
        EXPECT_GE(linesWith({"BriscaService(", "libc.so"}, before).size(), 2U) << "no backtrace";
        EXPECT_TRUE(waitUntil([] { return Process::running(APPLICATION_PROGRAM).empty(); }));
        service.reset();
        (void)client->pendingSignals();
    }
}

INSTANTIATE_TEST_SUITE_P(Crashes, FatalSignal, testing::ValuesIn(allCrashes()));
}  // namespace
