// Every request of the bus in every state, and the way between the states.
#include "Station.h"

namespace {

struct Request
{
    const char* method;
    const char* argument;
    const char* line;
    const char* acceptedIn;
    const char* refusal;  ///< null: refused in silence
    const char* neutral;  ///< result of a refusal
};
constexpr Request kRequests[] = {
    {"getFirmwareVersion", "", "Get firemware version", "BOOTLOADER", "BootloaderState] getFwVersion", ""},
    {"changeBleName", "Carport", "Set BLE name", "BOOTLOADER", "BootloaderState] setBleName", ""},
    {"startFirmwareUpdate", "/etc/passwd", "Start firmware update", "BOOTLOADER",
     "BootloaderState] startFwUpdate", "false"},
    {"startFirmwareApp", "", "Start firmware", "BOOTLOADER", "BootloaderState] startFirmware", ""},
    {"getMacAddress", "", "Get BLE mac address", "FIRMWARE", "FirmwareState] getBleMacAddress", ""},
    {"disconnectBleDevice", "", "disconnect device", "FIRMWARE", "FirmwareState] forceDeviceDisconnection",
     ""},
    {"disableBluetooth", "", "Disable Bluetooth", "FIRMWARE", nullptr, ""},
    {"enableBluetooth", "", "Enable Bluetooth", "DISABLED", nullptr, ""},
};

using StateRow = std::pair<std::string, const char*>;  // name and value

class Requests : public Station, public testing::WithParamInterface<StateRow>
{
};

TEST_P(Requests, OutsideTheirStateAreRefusedWithOneLine)
{
    ASSERT_NO_FATAL_FAILURE(startIn(GetParam().first));
    for (const Request& row : kRequests) {
        if (row.acceptedIn == GetParam().first)
            continue;
        const auto before = mark();
        EXPECT_EQ(client->call(row.method, row.argument), row.neutral) << row.method;
        std::vector<std::string> expected = {
            std::string("<DEBUG> [BriscaService.comm.BriscaDbus] Brisca service: ") + row.line};
        if (row.refusal != nullptr)
            expected.push_back(std::string("<WARN > [BriscaService.states.") + row.refusal +
                               " - Wrong state for this request.");
        EXPECT_THAT(linesWith({"[BriscaService"}, before), ElementsAreArray(expected)) << row.method;
    }
    EXPECT_EQ(client->call("getBriscaState"), GetParam().second);
    EXPECT_TRUE(waitLog("Brisca service: Get state request"));
    EXPECT_THAT(client->pendingSignals(), IsEmpty());
}

TEST_P(Requests, RestartLeadsOut)
{
    ASSERT_NO_FATAL_FAILURE(startIn(GetParam().first));
    const auto before = mark();
    const bool again = GetParam().first == "FIRMWARE";
    client->send("BriscaRestart");
    EXPECT_EQ(client->call("getBriscaState"), again ? kFirmware : kBootloader);
    EXPECT_THAT(linesWith({"Restart request", "switch from"}, before),
                ElementsAre(HasSubstr("Brisca service: Restart request"),
                            HasSubstr("switch from " + GetParam().first + " state to " +
                                      (again ? "FIRMWARE" : "BOOTLOADER") + " state")));
    EXPECT_EQ(again ? client->waitSignal() : "bleIsStarted", "bleIsStarted");
}

INSTANTIATE_TEST_SUITE_P(States, Requests,
                         testing::Values(StateRow{"BOOTLOADER", kBootloader}, StateRow{"FIRMWARE", kFirmware},
                                         StateRow{"DISABLED", kDisabled}, StateRow{"ERROR", kError}));

using Interface = Station;

TEST_F(Interface, IsIntrospectedAsItIsInstalled)
{
    startService();
    const std::string installed = readFile(INSTALLED_INTERFACE);
    const auto from = installed.find("  <interface");
    EXPECT_THAT(client->introspect(), HasSubstr(installed.substr(from, installed.find("</node>") - from)));
}

TEST_F(Interface, ServesTheRequestsOfBootloader)
{
    startService();
    EXPECT_THAT(client->call("getFirmwareVersion"), testing::AllOf(HasSubstr("v2.3.1"), HasSubstr("BL >")));
    EXPECT_EQ(client->call("changeBleName", "Carport 7"), "");
    EXPECT_EQ(client->call("startFirmwareUpdate", "/tmp/missing.gbl"), "false");
    EXPECT_TRUE(
        waitLog("<ERROR> [BriscaService.states.BootloaderState] The file can't be used (/tmp/missing.gbl)"));
    EXPECT_EQ(client->call("startFirmwareUpdate", "/tmp/a\n0000.0000 forged"), "false");
    EXPECT_TRUE(waitLog("The file can't be used (/tmp/a\\n0000.0000 forged)"));
    client->send("startFirmwareApp");
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
    efr32sim::Phone phone(chip);
    const auto found = phone.scan();
    ASSERT_TRUE(found);
    EXPECT_EQ(found->scanResponse.localName(), "Carport 7");
}

TEST_F(Interface, IsCommandedAsDocumentedAfterEveryStart)
{
    const std::string document = readFile(COMMANDER_DOCUMENT);
    const auto from = document.find("```sh\n") + 6;
    const std::string impatient = "busctl() { command busctl --timeout=5 \"$@\"; }\n";
    const Process commander(
        {"sh", "-c", impatient + document.substr(from, document.find("```", from) - from)},
        "/tmp/commander.log");
    const auto said = [](const std::string& text) {
        return testsupport::readFile("/tmp/commander.log").find(text) != std::string::npos;
    };
    for (const bool late : {true, false}) {
        if (late)
            chip.inject({.kind = efr32sim::FaultKind::SilentReset});
        service = std::make_unique<Process>(std::vector<std::string>{SERVICE_PROGRAM}, kLog, notified());
        if (late) {
            EXPECT_TRUE(waitUntil([&] { return said("timed out"); }));
            chip.sendRaw(efr32sim::Bytes{'B', 'L', ' ', '>'});
        }
        ASSERT_EQ(notify.wait(), "READY=1");
        EXPECT_EQ(client->waitSignal(), "bleIsStarted");
        efr32sim::Phone phone(chip);
        const auto found = phone.scan();
        ASSERT_TRUE(found);
        EXPECT_EQ(found->scanResponse.localName(), "Garage left");
        EXPECT_TRUE(waitUntil([&] { return said("on the air"); }));
        std::filesystem::resize_file("/tmp/commander.log", 0);
        service->kill(SIGKILL);
        (void)service->waitEnd(kPatience);
    }
}
}  // namespace
