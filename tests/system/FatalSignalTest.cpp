// Fatal signals on the main thread and on a task of the BLE stack, in two states.
#include "Station.h"
#include "Wait.h"

#include <gmock/gmock.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace {
using testing::ElementsAre;

struct Crash
{
    const char* name;
    int signal;
    bool onTask;
    bool inFirmware;
};
void PrintTo(const Crash& row, std::ostream* out)
{
    *out << row.name;
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
        ASSERT_EQ(service->waitEnd(testsupport::kPatience), "exit 1");
        EXPECT_THAT(linesWith({"detected in brisca"}, before),
                    ElementsAre("<FATAL> [BriscaService.main] Signal " + std::to_string(GetParam().signal) +
                                " detected in brisca service."));
        EXPECT_GE(linesWith({"BriscaService(", "libc.so"}, before).size(), 2U) << "no backtrace";
        EXPECT_TRUE(testsupport::waitUntil([] { return Process::running(APPLICATION_PROGRAM).empty(); }));
        service.reset();
        (void)client->pendingSignals();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Crashes, FatalSignal,
    testing::Values(Crash{"SIGSEGV on the main thread in BOOTLOADER", SIGSEGV, false, false},
                    Crash{"SIGABRT on the main thread in FIRMWARE", SIGABRT, false, true},
                    Crash{"SIGILL on the main thread in FIRMWARE", SIGILL, false, true},
                    Crash{"SIGSEGV on a task in FIRMWARE", SIGSEGV, true, true},
                    Crash{"SIGABRT on a task in BOOTLOADER", SIGABRT, true, false},
                    Crash{"SIGILL on a task in FIRMWARE", SIGILL, true, true}));
}  // namespace
