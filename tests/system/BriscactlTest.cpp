// The operator's tool against the real service.
#include "Station.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {
using testing::AllOf;

enum Exit { Done, Failed, Usage, WrongState, AccessDenied, NoService, TimeOut, FileRefused };

constexpr const char* kUnitSocket = "/tmp/unit";
constexpr const char* kOut = "/tmp/tool.out";
constexpr const char* kErrors = "/tmp/tool.err";

class Briscactl : public Station
{
protected:
    /// @param words the words of a shell
    static std::unique_ptr<Process> launch(const std::string& words)
    {
        std::filesystem::remove(kOut);
        return std::make_unique<Process>(
            std::vector<std::string>{"/bin/sh", "-c",
                                     "exec </dev/null >" + std::string(kOut) + " 2>" + kErrors +
                                         "; exec " TOOL_PROGRAM " " + words},
            "/tmp/shell.log");
    }
    static int run(const std::string& words)
    {
        return std::atoi(launch(words)->waitEnd(std::chrono::seconds(60)).value_or("exit 99").c_str() + 5);
    }
    static std::string out() { return readFile(kOut); }
    static std::string errors() { return readFile(kErrors); }
    static QJsonObject object(const std::string& line)
    {
        QJsonParseError error;
        const auto document = QJsonDocument::fromJson(QByteArray::fromStdString(line), &error);
        EXPECT_EQ(error.error, QJsonParseError::NoError) << line;
        return document.object();
    }
    static std::string value(const char* key)
    {
        return object(out())[QLatin1String(key)].toString().toStdString();
    }

    /// A stand-in of systemd takes the service's status.
    void startUnit()
    {
        m_unit =
            std::make_unique<Process>(std::vector<std::string>{UNIT_PROGRAM, kUnitSocket}, "/tmp/unit.log");
        ASSERT_TRUE(waitUntil([] { return std::filesystem::exists(kUnitSocket); }));
        service =
            std::make_unique<Process>(std::vector<std::string>{SERVICE_PROGRAM}, kLog,
                                      Process::Environment{std::string("NOTIFY_SOCKET=") + kUnitSocket});
        ASSERT_TRUE(waitUntil([this] { return client->call("getBriscaState") == kBootloader; }));
    }
    static void writeImage(std::size_t bytes = 40'000) { std::ofstream(kImage) << std::string(bytes, 'f'); }

    std::unique_ptr<Process> m_unit;
};

TEST_F(Briscactl, TakesTheServiceThroughItsStates)
{
    startUnit();
    for (const auto& [words, code, output, error] :
         std::vector<std::tuple<std::string, int, std::string, std::string>>{
             {"status", Done, "state:    BOOTLOADER\n", ""},
             {"health", WrongState, "", "briscactl start"},
             {"firmware", Done, "EFR32MG12 application", ""},
             {"mac", WrongState, "", "works in FIRMWARE: briscactl start"},
             {"disable", WrongState, "", "briscactl start"},
             {"disconnect", WrongState, "", "briscactl start"},
             {"name 'Garage links'", Done, "Garage links", ""},
             {"name ''", Usage, "", "1 to 29 bytes"},
             {"start --quiet", Done, "", ""},
             {"start", Done, "FIRMWARE\n", ""},
             {"health", Done, "FIRMWARE: on the air as Garage links\n", ""},
             {"mac", Done, "060504030201\n", ""},
             {"status", Done, "mac:      060504030201", ""},
             {"disconnect", Done, "dropped", ""},
             {"firmware", WrongState, "", "briscactl disable, then briscactl restart"},
             {"name x", WrongState, "", "works in BOOTLOADER"},
             {"restart", Done, "FIRMWARE\n", ""},
             {"restart --wait DISABLED --timeout 1", TimeOut, "", "no answer in time"},
             {"restart --wait never", Usage, "", "--wait takes"},
             {"disable", Done, "DISABLED\n", ""},
             {"health", Done, "DISABLED\n", ""},
             {"start", WrongState, "", "briscactl restart"},
             {"enable", Done, "FIRMWARE\n", ""},
             {"disable --quiet", Done, "", ""},
             {"restart", Done, "BOOTLOADER\n", ""},
             {"update /tmp", FileRefused, "", "no regular file"},
             {"update /nowhere", FileRefused, "", "No such file"},
             {"update /dev/null", FileRefused, "", "no regular file"},
             {"update", Usage, "", "FILE"},
             {"sleep", Usage, "", "'sleep' is no verb"},
             {"status --timeout 0", Usage, "", "--timeout"},
             {"status --bus unix:path=/tmp/none", NoService, "", "no bus"}}) {
        SCOPED_TRACE(words);
        EXPECT_EQ(run(words), code);
        EXPECT_THAT(out(), code == Done && !output.empty() ? HasSubstr(output)
                                                           : testing::Matcher<std::string>(output));
        EXPECT_THAT(errors(), error.empty() ? testing::Matcher<std::string>("")
                                            : AllOf(StartsWith("briscactl: "), HasSubstr(error)));
    }
}

TEST_F(Briscactl, TellsAFailureAndAServiceThatIsNotThereOrHangs)
{
    EXPECT_EQ(run("status"), NoService);
    EXPECT_THAT(errors(), HasSubstr("systemctl start brisca"));
    ASSERT_NO_FATAL_FAILURE(startUnit());
    chip.hangUp();
    EXPECT_EQ(run("start"), Failed);
    EXPECT_THAT(errors(), HasSubstr("ERROR"));
    EXPECT_EQ(run("health --json"), Failed);
    EXPECT_EQ(value("state"), "ERROR");
    service->kill(SIGSTOP);
    EXPECT_EQ(run("status --timeout 1"), TimeOut);
    const auto waiting = launch("status");
    service.reset();
    EXPECT_EQ(waiting->waitEnd(kPatience), "exit 5");
}

TEST_F(Briscactl, UpdatesFromFirmwareAndPutsTheStationBackOnTheAir)
{
    ASSERT_NO_FATAL_FAILURE(startUnit());
    writeImage();
    ASSERT_EQ(run("start"), Done);
    ASSERT_EQ(run("status --json"), Done);
    EXPECT_EQ(value("state"), "FIRMWARE");
    chip.inject({.kind = efr32sim::FaultKind::XmodemAnswer, .count = 0, .skip = 150, .bytes = {}});
    const auto tool = launch(std::string("update --yes --json --start --name Links ") + kImage);
    EXPECT_TRUE(
        waitUntil([] { return testing::Value(out(), testing::ContainsRegex("\"progress\":[1-9]")); }));
    chip.clearFaults();
    ASSERT_EQ(tool->waitEnd(kPatience), "exit 0") << errors();
    EXPECT_THAT(out(), HasSubstr(R"("state":"FIRMWARE")"));
    EXPECT_TRUE(waitUntil([] { return run("health") == Done && out().find("Links") != std::string::npos; }));
}

TEST_F(Briscactl, SaysWhyAnUpdateFailsAndBringsTheBootloaderBack)
{
    ASSERT_NO_FATAL_FAILURE(startUnit());
    writeImage();
    chip.inject({.kind = efr32sim::FaultKind::XmodemAnswer, .count = 0, .skip = 5, .bytes = {0x18}});
    EXPECT_EQ(run(std::string("update ") + kImage), Failed);
    EXPECT_THAT(errors(), AllOf(HasSubstr("refused by the chip"), HasSubstr("ready for another try")));
    chip.clearFaults();
    chip.inject({.kind = efr32sim::FaultKind::XmodemAnswer, .count = 60, .skip = 5, .bytes = {}});
    auto events = chip.follow();
    const auto tool = launch(std::string("update ") + kImage);
    ASSERT_TRUE(events.waitFor(efr32sim::EventKind::UploadStarted));
    EXPECT_TRUE(waitUntil([] { return out().find("firmware update: ") != std::string::npos; }));
    service->kill(SIGKILL);
    EXPECT_EQ(tool->waitEnd(kPatience), "exit 1");
    EXPECT_THAT(errors(), HasSubstr("the service has ended during the update"));
}

TEST_F(Briscactl, MonitorsSignalsStatesAndAServiceThatGoes)
{
    ASSERT_NO_FATAL_FAILURE(startUnit());
    const auto tool = launch("monitor --json");
    for (const auto& [action, line] : std::vector<std::pair<std::function<void()>, std::string>>{
             {[] {}, R"("state":"BOOTLOADER")"},
             {[this] { client->send("startFirmwareApp"); }, R"("signal":"bleIsStarted")"},
             {[] {}, R"("state":"FIRMWARE")"},
             {[] {}, R"("status":"FIRMWARE: on the air as Voltra")"},
             {[this] {
                  chip.hangUp();
                  client->send("BriscaRestart");
              },
              R"("status":"ERROR: the firmware could not be started")"},
             {[this] { service.reset(); }, R"("service":false)"}}) {
        action();
        EXPECT_TRUE(waitUntil([&line] { return out().find(line) != std::string::npos; })) << line;
    }
    std::istringstream lines(out());
    for (std::string line; std::getline(lines, line);)
        EXPECT_TRUE(object(line).contains("time"));
    bus->kill(SIGKILL);
    EXPECT_EQ(tool->waitEnd(kPatience), "exit 5");
}

TEST_F(Briscactl, ChecksALogConfigurationWithoutAService)
{
    std::ofstream(kImage)
        << "GLOBAL : NOTICE\nBriscaService.comm.An761 : TRACE\nBTP_CORE : LOUD # x\nGLOBAL\n";
    EXPECT_EQ(run(std::string("log check --json ") + kImage), Failed);
    EXPECT_THAT(out(), AllOf(HasSubstr("line 2: 'BriscaService.comm.An761'"), HasSubstr("line 3: 'LOUD'"),
                             HasSubstr("line 4: no colon")));
    EXPECT_EQ(run("log check"), Done);
    EXPECT_EQ(run("log check /nowhere"), FileRefused);
}
}  // namespace
