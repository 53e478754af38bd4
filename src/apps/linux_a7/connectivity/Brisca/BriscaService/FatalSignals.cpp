#include "FatalSignals.h"

#include "facade/Log.h"
#include "thread/SignalStack.h"

#include <execinfo.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>

BRISCA_LOG_NODE(logNode, "BriscaService.main");

namespace {
constexpr int kBacktraceEntries = 20;
constexpr unsigned kReportLimitS = 2;

std::atomic<pid_t> reportingThread{0};
static_assert(std::atomic<pid_t>::is_always_lock_free);

[[noreturn]] void endAtOnce(int)
{
    _exit(EXIT_FAILURE);
}

/// Only the first thread that faults comes back from here.
void becomeReporter()
{
    pid_t reporter = 0;
    if (reportingThread.compare_exchange_strong(reporter, gettid()))
        return;
    if (reporter == gettid())
        endAtOnce(0);  // a second fault, inside the report or inside exit()
    for (;;)
        pause();  // until the reporter has ended the process
}

/// The fault may have left a lock of the allocator or of a stream taken, which the report or a static
/// destructor would wait for without end.
void limitReportTime()
{
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    (void)std::signal(SIGALRM, endAtOnce);
    pthread_sigmask(SIG_UNBLOCK, &alarmOnly, nullptr);
    alarm(kReportLimitS);
}
}  // namespace

void installFatalSignalHandler()
{
    // The first call loads the unwinder's library, which must not happen inside the handler.
    void* entry = nullptr;
    backtrace(&entry, 1);
    // Never destroyed: static destructors run on it when the handler calls exit().
    [[maybe_unused]] static const SignalStack& mainThreadStack = *new SignalStack;
    struct sigaction action = {};
    action.sa_handler = sig_handler;
    // Nothing is masked: a second fault must reach the handler, not the kernel's default action.
    action.sa_flags = SA_ONSTACK | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGABRT, SIGSEGV, SIGILL})
        sigaction(signal, &action, nullptr);
}

void sig_handler(int signal)
{
    becomeReporter();
    limitReportTime();
    BRISCA_FATAL(logNode, "Signal %d detected in brisca service.", signal);
    displayBacktrace();
    std::exit(EXIT_FAILURE);
}

int exitStatus()
{
    return reportingThread == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

void displayBacktrace()
{
    void* entries[kBacktraceEntries];
    const int count = backtrace(entries, kBacktraceEntries);
    backtrace_symbols_fd(entries, count, STDERR_FILENO);
}
