#include "BriscaService.h"
#include "CommandLine.h"
#include "FatalSignals.h"
#include "StopSignals.h"
#include "conf/LogConf.h"
#include "facade/Log.h"

#include <QCoreApplication>

#include <unistd.h>

#include <csignal>
#include <cstdio>

BRISCA_LOG_NODE(logNode, "BriscaService.main");

namespace {
void run(int& argc, char** argv)
{
    QCoreApplication application(argc, argv);
    stopOnSignals();
    BRISCA_NOTIC(logNode, "Brisca service " BRISCA_VERSION);
    LogConf::readConf();
    LogFacade::inst().printTree();
    BriscaService service(&application);
    service.init();
    service.start();
    service.tellReady();
    QCoreApplication::exec();
}
}  // namespace

int main(int argc, char** argv)
{
    if (const auto status = answerCommandLine(argc, argv))
        return *status;
    installFatalSignalHandler();
    blockStopSignals();
    (void)std::signal(SIGPIPE, SIG_IGN);  // the log's reader may go; the station stays
    run(argc, argv);
    BRISCA_NOTIC(logNode, "Service stopped");
    (void)std::fflush(nullptr);
    // Not by return: the tasks of the BLE stack still run, and static objects must not be destroyed under
    // them.
    _exit(exitStatus());
}
