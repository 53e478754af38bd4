#include "CoapProcess.h"

#include "ProcessSession.h"
#include "StringUtils.h"
#include "facade/Log.h"

#include <QDeadlineTimer>
#include <QThread>

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

BRISCA_LOG_NODE(logNode, "BriscaService.states.FirmwareState");

namespace {
constexpr const char* kRootDirectory = "/evse";
constexpr const char* kProgramDirectory = "/app/bin";
constexpr const char* kProgramName = "/chp";
constexpr const char* kArgument = "coap+ser://tmp/EV3";
}  // namespace

CoapProcess::CoapProcess()
{
    setProcessChannelMode(ForwardedChannels);
    // Between the service and systemd only: what the application says there would be taken for the service's.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* const name : {"NOTIFY_SOCKET", "WATCHDOG_PID", "WATCHDOG_USEC"})
        environment.remove(QString::fromLatin1(name));
    setProcessEnvironment(environment);
    connect(this, qOverload<int, ExitStatus>(&QProcess::finished), this, &CoapProcess::reportEnd);
}

CoapProcess::~CoapProcess()
{
    if (killIfRunning())
        waitForFinished(-1);  // a killed process ends
}

bool CoapProcess::launch(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    const std::string program =
        StringUtils::joinPath(std::string(kRootDirectory) + kProgramDirectory, kProgramName);
    if (!waitForEnd(deadline)) {
        BRISCA_ERROR(logNode, "%s: the application before it has not ended yet", program.c_str());
        return false;
    }
    m_endIsExpected = false;
    m_servicePid = getpid();
    start(QString::fromStdString(program), {QString::fromLatin1(kArgument)}, ReadWrite);
    if (!waitForStarted(static_cast<int>(deadline.remainingTime()))) {
        BRISCA_ERROR(logNode, "%s: %s", program.c_str(), errorString().toUtf8().constData());
        return false;
    }
    m_session = static_cast<pid_t>(processId());
    return true;
}

// start() on a process that has been killed but not yet reaped only warns, and no application would run; and
// the members of a family that still lives would read the new one's requests.
bool CoapProcess::waitForEnd(const QDeadlineTimer& deadline)
{
    if (state() != NotRunning && !waitForFinished(static_cast<int>(deadline.remainingTime())))
        return false;
    while (killSession(m_session) > 0) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(1);
    }
    m_session = 0;
    return true;
}

bool CoapProcess::killIfRunning()
{
    const bool wasRunning = state() != NotRunning;
    if (wasRunning) {
        m_endIsExpected = true;
        kill();
    }
    const unsigned members = killSession(m_session);
    if (!wasRunning && members > 0)
        BRISCA_NOTIC(logNode, "%u processes that the CoAP application had left behind killed", members);
    return wasRunning;
}

void CoapProcess::setupChildProcess()
{
    // In the child, before the program: only async-signal-safe calls.
    setsid();  // a shell's "kill 0" must not reach the service
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // As systemd starts programs: the log's reader, to whom the application's output goes, may go.
    (void)std::signal(SIGPIPE, SIG_IGN);
    if (getppid() != m_servicePid)
        _exit(EXIT_FAILURE);  // the service ended before the kernel knew whose end to watch for
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);  // the service takes its stop signals on a thread of their own
}

void CoapProcess::reportEnd(int exitCode, ExitStatus exitStatus)
{
    if (!sessionLives(m_session))
        m_session = 0;  // the number is free, and may become that of a stranger
    if (m_endIsExpected)
        return;
    BRISCA_WARN(logNode, "The CoAP application ended by itself: %s %d",
                exitStatus == NormalExit ? "exit status" : "signal", exitCode);
}
