// Runs in a sandbox, because the application's path is fixed.
#include "CoapProcess.h"
#include "StdoutCapture.h"
#include "TempDir.h"
#include "Wait.h"

#include <gmock/gmock.h>

#include <QCoreApplication>

#include <sys/stat.h>

#include <csignal>
#include <fstream>

namespace {
constexpr int kTimeoutMs = 30000;

class CoapApplication : public testing::Test
{
protected:
    /// Puts a shell script in the application's place.
    static void install(const std::string& body)
    {
        const char* const path = "/evse/app/bin/chp";
        std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
        ::chmod(path, 0755);
    }
    bool outputShows(const std::string& text)
    {
        return testsupport::waitUntil([&] {
            QCoreApplication::processEvents();
            return output.contains(text);
        });
    }

    int argc = 0;
    QCoreApplication application{argc, nullptr};
    testsupport::StdoutCapture output;
    CoapProcess process;
};

TEST_F(CoapApplication, TakesStopSignalsAlthoughTheServiceBlocksThem)
{
    install("kill -TERM $$; echo still here; exec sleep 1000");
    sigset_t stop;
    sigset_t before;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, &before);
    EXPECT_TRUE(process.launch(kTimeoutMs));
    sigprocmask(SIG_SETMASK, &before, nullptr);
    EXPECT_TRUE(outputShows("The CoAP application ended by itself: signal 15"));
    EXPECT_FALSE(output.contains("still here"));
    EXPECT_FALSE(process.killIfRunning());
}
}  // namespace
