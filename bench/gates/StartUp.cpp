// Starts the real service on a simulated station, under the program that is named, and ends it when it is
// ready. usage: bench_start PROGRAM ARGUMENT...

#include "Station.h"

#include <csignal>
#include <fstream>

namespace {
class Start : public Station
{
public:
    void run(std::vector<std::string> command)
    {
        std::ofstream("/evse/data/log.cfg") << "GLOBAL : NOTICE\n";
        command.emplace_back(SERVICE_PROGRAM);
        service = std::make_unique<Process>(command, kLog, notified());
        ASSERT_EQ(notify.wait(), "READY=1");
        service->kill(SIGTERM);
        ASSERT_EQ(service->waitEnd(testsupport::kPatience), "exit 0");
    }

private:
    void TestBody() override {}
};
}  // namespace

int main(int argc, char** argv)
{
    Start().run({argv + 1, argv + argc});
    return testing::Test::HasFailure() ? 1 : 0;
}
