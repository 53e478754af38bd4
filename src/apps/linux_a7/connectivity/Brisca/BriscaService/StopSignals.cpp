#include "StopSignals.h"

#include "FatalSignals.h"
#include "Systemd.h"
#include "facade/Log.h"

#include <QCoreApplication>

#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <thread>

BRISCA_LOG_NODE(logNode, "BriscaService.main");

namespace {
sigset_t stopSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    return set;
}

[[noreturn]] void endWithoutCeremony(int)
{
    _exit(exitStatus());  // the kernel kills the CoAP application with its parent
}

/// Armed before anything that can block, the log included: its reader may be gone.
void limitStopTime()
{
    (void)std::signal(SIGALRM, endWithoutCeremony);
    const itimerval limit = {{0, 0}, {kStopLimitMs / 1000, kStopLimitMs % 1000 * 1000L}};
    setitimer(ITIMER_REAL, &limit, nullptr);
}

void waitForStop()
{
    const sigset_t set = stopSignals();
    int signal = 0;
    while (sigwait(&set, &signal) != 0) {
    }
    if (exitStatus() != EXIT_SUCCESS)
        return;  // a crash is being reported and ends the process by itself
    limitStopTime();
    // Before the event loop ends: the process is gone a moment later.
    Systemd::stopping();
    BRISCA_NOTIC(logNode, "Signal %d received, the service stops", signal);
    // Queued, because exec() forgets a quit() that came before it, during the first state entry; and as a
    // call, because it removes a Quit event, too.
    QMetaObject::invokeMethod(qApp, "quit", Qt::QueuedConnection);
}
}  // namespace

void blockStopSignals()
{
    const sigset_t set = stopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void stopOnSignals()
{
    std::thread(waitForStop).detach();
}
