// From the start of the process to the event loop.
#include "Station.h"

namespace {
using efr32sim::EventKind;
using StartUp = Station;

constexpr const char* kNodes =
    "BriscaService.main BriscaService.StateManager BriscaService.FwUpdateWorker "
    "BriscaService.comm.BluetoothManager BriscaService.comm.An760 BriscaService.comm.BriscaDbus "
    "BriscaService.comm.SerialPort BriscaService.comm.xmodem BriscaService.states.BootloaderState "
    "BriscaService.states.DisabledState BriscaService.states.ErrorState BriscaService.states.FirmwareState "
    "BriscaService.io.IoEfr32Manager LinuxOutputPin Brisca [KORA][GOS] NCP_MANAGER [BTP_MANAGER_PROCESS] "
    "BTP_CORE serial_brisca liblog [RTapi][MUTEX] RTapi.TASKS RTapi.TASK RTapi.THREAD [RTapi][MAILBOX] "
    "[RTapi][SEM] [RTapi][SIGNAL] RTapi.FIFO_MUTEX Utils.StringUtils";

TEST_F(StartUp, PrintsEveryNodeOfTheLogWithItsLevel)
{
    std::ofstream("/evse/data/log.cfg")
        << "GLOBAL : ERROR\nliblog : NOTICE # the tree\nBriscaService : DEBUG\n";
    startService();
    std::istringstream nodes(kNodes);
    for (std::string node; nodes >> node;) {
        const bool own = node.rfind("BriscaService", 0) == 0;
        const std::string level = node == "liblog" ? "NOTIC" : own ? "DEBUG" : "ERROR";
        EXPECT_THAT(log(), HasSubstr("<NOTIC> [liblog] GLOBAL." + node + ":" + level + "\n"));
    }
}

TEST_F(StartUp, IsReadyAfterTheFirstEntryAndReachableByThen)
{
    startService();
    EXPECT_THAT(
        linesWith({"Current log configuration", "StateManager] Brisca", "Success at", "WARN", "ERROR"}),
        ElementsAre("<NOTIC> [liblog] Current log configuration :",
                    "<NOTIC> [BriscaService.StateManager] Brisca service switch from DEFAULT state to "
                    "BOOTLOADER state",
                    "<DEBUG> [BriscaService.states.BootloaderState] Success at retry number 0"));
    EXPECT_TRUE(client->nameIsOwned());
    EXPECT_EQ(client->call("getBriscaState"), kBootloader);
    auto events = chip.followFromStart();
    EXPECT_EQ(events.drain(EventKind::ResetLow), 1U);
}

TEST_F(StartUp, WithoutSystemdAndConfigurationIsLoggedAndGoesOn)
{
    std::filesystem::remove("/evse/data/log.cfg");
    service = std::make_unique<Process>(std::vector<std::string>{SERVICE_PROGRAM}, kLog);
    EXPECT_TRUE(waitLog("<WARN > [BriscaService.main] Fail to notify systemd"));
    EXPECT_EQ(client->call("getBriscaState"), kBootloader);
    EXPECT_THAT(log(), HasSubstr("<ERROR> [liblog] Coulnd't open file at path /evse/data/log.cfg"));
    EXPECT_THAT(log(), HasSubstr("GLOBAL.NCP_MANAGER:NOTIC"));
    EXPECT_THAT(log(), Not(HasSubstr("<DEBUG>")));
}

TEST_F(StartUp, WaitsForASilentChipUntilItsLineIsGone)
{
    chip.inject({.kind = efr32sim::FaultKind::SilentReset, .count = 0});
    auto events = chip.follow();
    service = std::make_unique<Process>(std::vector<std::string>{SERVICE_PROGRAM}, kLog);
    ASSERT_TRUE(events.waitFor(EventKind::ResetHigh));
    EXPECT_TRUE(client->nameIsOwned());
    chip.hangUp();
    EXPECT_TRUE(waitLog("switch from BOOTLOADER state to ERROR state"));
    EXPECT_EQ(client->call("getBriscaState"), kError);
}

TEST_F(StartUp, KeepsTheOrderOfRequestsWhileTheEventLoopStarts)
{
    constexpr int kRequestsWhenReady = 500;
    service = std::make_unique<Process>(std::vector<std::string>{SERVICE_PROGRAM}, kLog, notified());
    ASSERT_TRUE(waitUntil([this] { return client->nameIsOwned(); }));
    std::vector<std::string> expected;
    for (int left = kRequestsWhenReady; left > 0;) {
        const std::string name = "name " + std::to_string(expected.size());
        client->send("changeBleName", name);
        expected.push_back(" to " + name + ".");
        if (left < kRequestsWhenReady || !notify.wait(std::chrono::milliseconds(0)).empty())
            --left;
    }
    EXPECT_EQ(client->call("getBriscaState"), kBootloader);
    auto lines = linesWith({"BLE name changed from"});
    for (std::string& line : lines)
        line.erase(0, line.find(" to name"));
    EXPECT_EQ(lines, expected);
}

TEST_F(StartUp, AnswersAShellWithoutTouchingTheStation)
{
    startService();
    auto events = chip.follow();
    for (const auto& [arguments, end] :
         std::vector<std::pair<std::vector<std::string>, std::string>>{{{"--version"}, "exit 0"},
                                                                       {{"--help"}, "exit 0"},
                                                                       {{"--reset"}, "exit 2"},
                                                                       {{"--version", "--help"}, "exit 2"}}) {
        std::vector<std::string> command = {SERVICE_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        Process asked(command, "/tmp/asked.log");
        EXPECT_EQ(asked.waitEnd(kPatience), end) << arguments[0];
    }
    const std::string answers = readFile("/tmp/asked.log");
    EXPECT_EQ(answers.rfind("BriscaService ", 0), 0U);
    EXPECT_EQ(linesWith({""}).front(),
              "<NOTIC> [BriscaService.main] Brisca service" + answers.substr(13, answers.find('\n') - 13));
    EXPECT_THAT(answers, HasSubstr("usage: "));
    EXPECT_EQ(events.drain(EventKind::ResetLow), 0U);
    EXPECT_EQ(client->call("getBriscaState"), kBootloader);
}
}  // namespace
