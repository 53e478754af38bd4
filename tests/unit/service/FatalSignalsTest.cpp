// Each case crashes a process of its own and looks at what it leaves. Plain signals are left to the tests of
// the whole service.
#include "FatalSignals.h"
#include "Testing.h"
#include "thread/Thread.h"

#include <climits>

/// The handler calls what is unsafe in a signal, deliberately; and no thread is joined before a crash.
extern "C" const char* __tsan_default_options()
{
    return "report_signal_unsafe=0:report_thread_leaks=0";
}

namespace {
/// The handler's two entries, and at least two of what led to the fault.
constexpr const char* kBacktrace = "(.*fatal_signals_test.*\\[0x){4}";
constexpr const char* kSegvLine = "Signal 11 detected in brisca service";

void crash()
{
    std::raise(SIGSEGV);
}

/// Uses its frame after the call, so that no optimiser can make a loop of it.
int overflow(int depth)
{
    volatile char room[4096];
    room[0] = static_cast<char>(depth);
    return depth == INT_MAX ? 0 : overflow(depth + 1) + room[0];
}
void overflowStack()
{
    std::exit(overflow(0));
}

class CrashingThread : public Thread
{
public:
    explicit CrashingThread(void (*body)()) : Thread("crashing"), m_body(body) {}
    void Execute(void*) override { m_body(); }

private:
    void (*m_body)();
};
void onThread(void (*body)())
{
    CrashingThread thread(body);
    thread.Start();
    thread.Join();
}

/// The second fault ends the process by itself, not the limit of the report's time.
void crashInsideExit()
{
    std::atexit([] {
        alarm(0);
        crash();
    });
    crash();
}
void abortInsideExit()
{
    std::atexit([] {
        alarm(0);
        std::abort();
    });
    std::raise(SIGABRT);  // not abort(), which no backtrace gets past on ARM
}
void waitInsideExit()
{
    std::atexit([] {
        for (;;)
            pause();
    });
    crash();
}
void crashOnManyThreads()
{
    for (int count = 0; count < 8; ++count)
        std::thread(crash).detach();
    for (;;)
        pause();
}

/// The log goes where death tests look.
void run(void (*body)())
{
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    installFatalSignalHandler();
    body();
    std::exit(0);
}

TEST(Crash, LeavesItsLineABacktraceAndStatusOne)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const auto& [name, body, line] : Rows<void (*)(), std::string>{
             {"stack overflow", overflowStack, kSegvLine},
             {"stack overflow on a task", [] { onThread(overflowStack); }, kSegvLine},
             {"a second fault inside exit", crashInsideExit, kSegvLine},
             {"abort inside exit", abortInsideExit, "Signal 6 detected in brisca service"},
             {"an exit that never ends", waitInsideExit, kSegvLine},
             {"many threads at once", crashOnManyThreads, kSegvLine}}) {
        SCOPED_TRACE(name);
        EXPECT_EXIT(run(body), testing::ExitedWithCode(1), line + kBacktrace);
    }
}
}  // namespace
