#include "CoapProcess.h"

#include "StringUtils.h"
#include "facade/Log.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

BRISCA_LOG_NODE(logNode, "BriscaService.states.FirmwareState");

namespace {
constexpr const char* kRootDirectory = "/evse";
constexpr const char* kProgramDirectory = "/app/bin";
constexpr const char* kProgramName = "/chp";
constexpr const char* kArgument = "coap+ser://tmp/EV3";
}  // namespace

std::string joinPath(const std::string& dir, const std::string& name)
{
    const bool dirEnds = StringUtils::endsWith(dir, "/");
    const bool nameStarts = StringUtils::startsWith(name, "/");
    if (!dirEnds && !nameStarts)
        return dir + "/" + name;
    if (dirEnds && nameStarts)
        return dir.substr(0, dir.size() - 1) + name;
    return dir + name;
}

CoapProcess::CoapProcess()
{
    setProcessChannelMode(ForwardedChannels);
    connect(this, qOverload<int, ExitStatus>(&QProcess::finished), this, &CoapProcess::reportEnd);
}

CoapProcess::~CoapProcess()
{
    if (killIfRunning())
        waitForFinished(-1);  // a killed process ends
}

bool CoapProcess::launch(int timeoutMs)
{
    // start() on a process that has been killed but not yet reaped only warns, and no application would run.
    if (state() != NotRunning && !waitForFinished(timeoutMs))
        return false;
    m_endIsExpected = false;
    m_servicePid = getpid();
    const std::string program = joinPath(std::string(kRootDirectory) + kProgramDirectory, kProgramName);
    start(QString::fromStdString(program), {QString::fromLatin1(kArgument)}, ReadWrite);
    return waitForStarted(timeoutMs);
}

bool CoapProcess::killIfRunning()
{
    if (state() == NotRunning)
        return false;
    m_endIsExpected = true;
    kill();
    return true;
}

void CoapProcess::setupChildProcess()
{
    // In the child, before the program: only async-signal-safe calls.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // As systemd starts programs: the log's reader, to whom the application's output goes, may go.
    (void)std::signal(SIGPIPE, SIG_IGN);
    if (getppid() != m_servicePid)
        _exit(EXIT_FAILURE);  // the service ended before the kernel knew whose end to watch for
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);  // the service takes its stop signals on a thread of their own
}

void CoapProcess::reportEnd(int exitCode, ExitStatus exitStatus) const
{
    if (m_endIsExpected)
        return;
    BRISCA_WARN(logNode, "The CoAP application ended by itself: %s %d",
                exitStatus == NormalExit ? "exit status" : "signal", exitCode);
}
