// FIRMWARE and DISABLED: entry, traffic, restart, exit, and the ways in which an entry fails.
#include "Station.h"
#include "Wait.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {
using efr32sim::EventKind;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using Firmware = Station;

std::string step(const std::string& text)
{
    return "<NOTIC> [BriscaService.states.FirmwareState] " + text;
}
const std::vector<std::string> kSteps = {"FirmwareState] ", "StateManager] "};
std::string transition(const std::string& from, const std::string& to)
{
    return "<NOTIC> [BriscaService.StateManager] Brisca service switch from " + from + " state to " + to +
           " state";
}

/// A phone sends a message and gets the stand-in's answer.
void expectEcho(efr32sim::Phone& phone, const std::string& text)
{
    ASSERT_TRUE(phone.writeMessage(text));
    const auto answer = phone.waitMessage();
    ASSERT_TRUE(answer);
    EXPECT_EQ(std::string(answer->begin(), answer->end()), "echo:" + text);
}

TEST_F(Firmware, IsEnteredStepByStepAndServesAPhone)
{
    startService();
    const auto before = mark();
    client->send("startFirmwareApp");
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
    EXPECT_THAT(linesWith(kSteps, before),
                ElementsAre(transition("BOOTLOADER", "FIRMWARE"), step("EFR32 restarted"),
                            step("Prompt detected: true"), step("BLE initialized: true"),
                            step("Coap started: true"), step("Bluetooth started: true")));
    EXPECT_TRUE(std::filesystem::exists("/tmp/EV3"));
    EXPECT_TRUE(waitLog("runs with coap+ser://tmp/EV3"))
        << "the application's output goes to the service's own";
    efr32sim::Phone phone(chip);
    ASSERT_TRUE(phone.connect());
    EXPECT_EQ(client->waitSignal(), "btDeviceConnected");
    expectEcho(phone, "hello");
    phone.disconnect();
    EXPECT_EQ(client->waitSignal(), "btDeviceDisconnected");
    EXPECT_THAT(phone.violations(), testing::IsEmpty());
}

TEST_F(Firmware, TellsAShortConnectionInOrder)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    efr32sim::Phone phone(chip);
    for (int round = 0; round < 5; ++round) {
        ASSERT_TRUE(phone.connect());
        phone.disconnect();
        EXPECT_EQ(client->waitSignal(), "btDeviceConnected");
        EXPECT_EQ(client->waitSignal(), "btDeviceDisconnected");
    }
}

TEST_F(Firmware, IsRestartedWithANewApplicationAndServesThePhoneAgain)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    for (int round = 0; round < 3; ++round) {
        const auto applications = Process::running(APPLICATION_PROGRAM);
        ASSERT_EQ(applications.size(), 1U);
        const auto before = mark();
        client->send("BriscaRestart");
        EXPECT_EQ(client->waitSignal(), "bleIsStarted");
        EXPECT_THAT(
            linesWith(kSteps, before),
            ElementsAre(transition("FIRMWARE", "FIRMWARE"), step("coAp killed"), step("EFR32 restarted"),
                        step("Prompt detected: true"), step("BLE initialized: true"),
                        step("Coap started: true"), step("Bluetooth started: true")));
        const auto now = Process::running(APPLICATION_PROGRAM);
        ASSERT_EQ(now.size(), 1U);
        EXPECT_NE(now, applications);
        efr32sim::Phone phone(chip);
        ASSERT_TRUE(phone.connect());
        EXPECT_EQ(client->waitSignal(), "btDeviceConnected");
        expectEcho(phone, "round " + std::to_string(round));
        phone.disconnect();
        EXPECT_EQ(client->waitSignal(), "btDeviceDisconnected");
    }
}

TEST_F(Firmware, IsDisabledWithTheChipInResetAndEnabledAfresh)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    const auto threads = service->threads().size();
    for (int round = 0; round < 2; ++round) {
        const auto before = mark();
        client->send("disableBluetooth");
        EXPECT_EQ(client->call("getBriscaState"), kDisabled);
        EXPECT_TRUE(testsupport::waitUntil([this] { return chip.mode() == efr32sim::Mode::Held; }));
        EXPECT_TRUE(testsupport::waitUntil([] { return Process::running(APPLICATION_PROGRAM).empty(); }));
        EXPECT_THAT(linesWith(kSteps, before),
                    ElementsAre(transition("FIRMWARE", "DISABLED"), step("coAp killed")));
        client->send("enableBluetooth");
        EXPECT_EQ(client->waitSignal(), "bleIsStarted");
        EXPECT_EQ(client->call("getBriscaState"), kFirmware);
    }
    efr32sim::Phone phone(chip);
    ASSERT_TRUE(phone.connect());
    expectEcho(phone, "after enabling");
    EXPECT_EQ(service->threads().size(), threads) << "threads have doubled";
}

struct Failure
{
    const char* name;
    void (*prepare)(efr32sim::Chip&);
    std::vector<std::string> lines;
};
void PrintTo(const Failure& row, std::ostream* out)
{
    *out << row.name;
}
const std::string kFailed =
    "<ERROR> [BriscaService.states.FirmwareState] Error during launching of the firmware.";

class FailingEntry : public Station, public testing::WithParamInterface<Failure>
{
};

TEST_P(FailingEntry, EndsInErrorAndARestartLeadsOut)
{
    startService();
    GetParam().prepare(chip);
    const auto before = mark();
    client->send("startFirmwareApp");
    EXPECT_EQ(client->call("getBriscaState"), kError);
    EXPECT_THAT(linesWith(kSteps, before), ElementsAreArray(GetParam().lines));
    EXPECT_TRUE(Process::running(APPLICATION_PROGRAM).empty());
    EXPECT_THAT(service->descriptors(), testing::Not(testing::Contains(HasSubstr("/dev/pts/"))))
        << "the line is exclusive: a service without privileges could not open it for the restart";

    installApplication();
    std::filesystem::remove("/tmp/ttyBleTx");
    chip.plugIn();
    client->send("BriscaRestart");
    EXPECT_EQ(client->call("getBriscaState"), kBootloader);
    (void)client->pendingSignals();
    client->send("startFirmwareApp");
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
}

INSTANTIATE_TEST_SUITE_P(
    Steps, FailingEntry,
    testing::Values(
        Failure{"serial line is gone",
                [](efr32sim::Chip& chip) { chip.hangUp(); },
                {transition("BOOTLOADER", "FIRMWARE"), step("EFR32 restarted"), kFailed,
                 transition("FIRMWARE", "ERROR")}},
        Failure{"pipe cannot be made",
                [](efr32sim::Chip&) { std::filesystem::create_symlink("/nowhere/x", "/tmp/ttyBleTx"); },
                {transition("BOOTLOADER", "FIRMWARE"), step("EFR32 restarted"), step("Prompt detected: true"),
                 step("BLE initialized: false"), kFailed, transition("FIRMWARE", "ERROR")}},
        Failure{"application is missing",
                [](efr32sim::Chip&) { std::filesystem::remove("/evse/app/bin/chp"); },
                {transition("BOOTLOADER", "FIRMWARE"), step("EFR32 restarted"), step("Prompt detected: true"),
                 step("BLE initialized: true"), step("Coap started: false"),
                 "<ERROR> [BriscaService.states.FirmwareState] Fail to start the CoAP aaplication.",
                 transition("FIRMWARE", "ERROR"), kFailed, transition("ERROR", "ERROR")}}));
}  // namespace
