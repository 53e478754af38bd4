// FIRMWARE and DISABLED: entry, traffic, restart, exit, and the ways in which an entry fails.
#include "Station.h"

namespace {
using efr32sim::CommandId;
using efr32sim::FaultKind;
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

/// The lines of an entry that succeeds, behind those that lead to it.
std::vector<std::string> entry(std::vector<std::string> lines)
{
    for (const char* const text : {"EFR32 restarted", "Prompt detected: true", "BLE initialized: true",
                                   "Coap started: true", "Bluetooth started: true"})
        lines.push_back(step(text));
    return lines;
}

TEST_F(Firmware, IsEnteredStepByStepAndServesAPhone)
{
    startService();
    const auto before = mark();
    client->send("startFirmwareApp");
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
    EXPECT_EQ(linesWith(kSteps, before), entry({transition("BOOTLOADER", "FIRMWARE")}));
    EXPECT_TRUE(std::filesystem::exists("/tmp/EV3"));
    EXPECT_TRUE(waitLog("runs with coap+ser://tmp/EV3"))
        << "the application's output goes to the service's own";
    efr32sim::Phone phone(chip);
    ASSERT_TRUE(phone.scan());
    const efr32sim::Bytes identity = {0x02, 0x01, 0x05, 0x0D, 0xFF, 0xFF, 0xFF, 0xF4, 0x4C,
                                      0x01, 0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06};
    const efr32sim::Bytes onAir = chip.air().advertisingData;
    ASSERT_EQ(onAir.size(), identity.size());
    EXPECT_EQ(efr32sim::Bytes(onAir.begin(), onAir.end() - 6),
              efr32sim::Bytes(identity.begin(), identity.end() - 6));
    EXPECT_EQ(chip.air().scanResponse, (efr32sim::Bytes{0x07, 0x09, 'V', 'o', 'l', 't', 'r', 'a'}));
    ASSERT_TRUE(phone.connect());
    EXPECT_EQ(client->waitSignal(), "btDeviceConnected");
    // A response that a busy machine delays leaves zeroes in place of the address until advertising starts
    // again, or doubles a fragment, and the phone then drops the message.
    std::optional<efr32sim::Bytes> answer;
    for (int attempt = 0; attempt < 5 && !answer; ++attempt) {
        ASSERT_TRUE(phone.writeMessage("hello"));
        answer = phone.waitMessage(std::chrono::seconds(3));
    }
    ASSERT_TRUE(answer);
    EXPECT_EQ(std::string(answer->begin(), answer->end()), "echo:hello");
    EXPECT_TRUE(phone.violations().empty() || log().find("NO response.") != std::string::npos);
    phone.disconnect();
    EXPECT_EQ(client->waitSignal(), "btDeviceDisconnected");
    EXPECT_TRUE(onAir == identity || waitUntil([&] { return chip.air().advertisingData == identity; }));
}

TEST_F(Firmware, TellsAShortConnectionInOrder)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    efr32sim::Phone phone(chip);
    for (int round = 0; round < 5; ++round) {
        ASSERT_TRUE(phone.connect());
        if (round % 2 == 0)
            phone.disconnect();
        else
            client->send("disconnectBleDevice");
        EXPECT_EQ(client->waitSignal(), "btDeviceConnected");
        EXPECT_EQ(client->waitSignal(), "btDeviceDisconnected");
        EXPECT_TRUE(phone.waitDisconnected());
    }
}

TEST_F(Firmware, ServesOperatorsAndPhonesWhenTheLastByteOfAnEventIsLost)
{
    startService();
    chip.inject({.kind = FaultKind::CutPacket,
                 .command = CommandId{0x01, 0x00},
                 .type = efr32sim::PacketType::Event,
                 .length = 17});
    client->send("startFirmwareApp");
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
    EXPECT_TRUE(waitLog("Event: NCP boot up.")) << "made up for, not received";
    efr32sim::Phone phone(chip);
    ASSERT_TRUE(phone.connect());
    EXPECT_EQ(client->waitSignal(), "btDeviceConnected");
    chip.inject({.kind = FaultKind::CutPacket,
                 .command = CommandId{0x08, 0x01},
                 .type = efr32sim::PacketType::Event,
                 .length = 6});
    phone.disconnect();
    EXPECT_EQ(client->waitSignal(), "btDeviceDisconnected");
    // A busy machine loses a response now and then, too.
    EXPECT_TRUE(waitUntil([this] { return client->call("getMacAddress").size() == 12U; }));
    EXPECT_TRUE(phone.connect());
    EXPECT_EQ(client->waitSignal(), "btDeviceConnected");
    client->send("BriscaRestart");
    EXPECT_EQ(client->waitSignal(), "btDeviceDisconnected");
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
}

TEST_F(Firmware, WhoseChipFallsSilentIsEnteredAnewAndLeftToACommanderWhenThatFails)
{
    if (std::getenv("BRISCA_ROUNDS") == nullptr)
        GTEST_SKIP() << "two minutes, for the long form";
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    const auto logs = [this](const std::string& text) {
        return testsupport::waitUntil([&] { return log().find(text) != std::string::npos; },
                                      std::chrono::seconds(90));
    };
    chip.setReset(false);
    chip.setReset(true);
    EXPECT_TRUE(logs("The chip has answered nothing for 30 s"));
    EXPECT_TRUE(logs("The chip is silent, FIRMWARE is entered anew"));
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
    chip.hangUp();
    EXPECT_TRUE(logs("The chip did not come back."));
    EXPECT_EQ(client->call("getBriscaState"), kError);
}

TEST_F(Firmware, IsRestartedDisabledAndEnabledEachTimeWithANewApplication)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    const auto applications = Process::running(APPLICATION_PROGRAM);
    auto before = mark();
    client->send("BriscaRestart");
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
    EXPECT_EQ(linesWith(kSteps, before), entry({transition("FIRMWARE", "FIRMWARE"), step("coAp killed")}));
    EXPECT_EQ(Process::running(APPLICATION_PROGRAM).size(), 1U);
    EXPECT_NE(Process::running(APPLICATION_PROGRAM), applications);

    before = mark();
    client->send("disableBluetooth");
    EXPECT_EQ(client->call("getBriscaState"), kDisabled);
    EXPECT_TRUE(waitUntil([this] { return chip.mode() == efr32sim::Mode::Held; }));
    EXPECT_TRUE(waitUntil([] { return Process::running(APPLICATION_PROGRAM).empty(); }));
    EXPECT_THAT(linesWith(kSteps, before),
                ElementsAre(transition("FIRMWARE", "DISABLED"), step("coAp killed")));

    before = mark();
    client->send("enableBluetooth");
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
    EXPECT_EQ(linesWith(kSteps, before), entry({transition("DISABLED", "FIRMWARE")}));
}

TEST_F(Firmware, EndsItsApplicationWithAllItsProcesses)
{
    // Two process groups of their own in the session; a shell without a terminal makes none.
    installApplication("for i in 1 2; do perl -e 'setpgrp; exec @ARGV' $APPLICATION & done\nwait\n");
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    const auto family = [] { return Process::running(APPLICATION_PROGRAM); };
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(waitUntil([&] { return family().size() == 2; }));
        const auto before = family();
        client->send("BriscaRestart");
        ASSERT_EQ(client->waitSignal(), "bleIsStarted");
        for (const pid_t left : before)
            EXPECT_THAT(family(), Not(testing::Contains(left)));
    }
    installApplication("$APPLICATION &\nexit 3\n");
    client->send("BriscaRestart");
    EXPECT_TRUE(waitLog("The CoAP application ended by itself: exit status 3"));
    ASSERT_TRUE(waitUntil([&] { return family().size() == 1; }));
    client->send("disableBluetooth");
    EXPECT_TRUE(waitLog("1 processes that the CoAP application had left behind killed"));
    EXPECT_TRUE(waitUntil([&] { return family().empty(); }));
}

TEST_F(Firmware, OutlivesAnApplicationThatEndsItsProcessGroupAndKeepsSystemdAndItsDescriptorsToItself)
{
    installApplication("env >/tmp/environment\nls -l /proc/$$/fd >/tmp/descriptors\nkill 0\n");
    ASSERT_NO_FATAL_FAILURE(startService({"WATCHDOG_USEC=60000000", "KEPT=1"}));
    client->send("startFirmwareApp");
    EXPECT_TRUE(waitLog("The CoAP application ended by itself: signal 15"));
    EXPECT_EQ(client->call("getBriscaState"), kFirmware);
    const std::string environment = readFile("/tmp/environment");
    EXPECT_THAT(environment, HasSubstr("KEPT=1"));
    EXPECT_THAT(environment, Not(testing::ContainsRegex("NOTIFY_SOCKET|WATCHDOG_")));
    EXPECT_THAT(readFile("/tmp/descriptors"),
                AllOf(HasSubstr(" 0 -> pipe:"),
                      Not(testing::ContainsRegex("/dev/pts/|/tmp/ttyBle|socket:|anon_inode:"))));
}

struct Failure
{
    const char* name;
    void (*prepare)(efr32sim::Chip&);
    std::vector<std::string> lines;
};
const std::string kFailed =
    "<ERROR> [BriscaService.states.FirmwareState] Error during launching of the firmware.";

class FailingEntry : public Station, public testing::WithParamInterface<Failure>
{
};

TEST_P(FailingEntry, EndsInErrorAndARestartLeadsOut)
{
    SCOPED_TRACE(GetParam().name);
    startService();
    GetParam().prepare(chip);
    const auto before = mark();
    client->send("startFirmwareApp");
    EXPECT_EQ(client->call("getBriscaState"), kError);
    EXPECT_THAT(linesWith(kSteps, before), ElementsAreArray(GetParam().lines));
    EXPECT_TRUE(Process::running(APPLICATION_PROGRAM).empty());
    EXPECT_THAT(service->descriptors(), Not(testing::Contains(HasSubstr("/dev/pts/"))))
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
                 step("BLE initialized: true"),
                 "<ERROR> [BriscaService.states.FirmwareState] /evse/app/bin/chp: execve: No such file or "
                 "directory",
                 step("Coap started: false"),
                 "<ERROR> [BriscaService.states.FirmwareState] Fail to start the CoAP aaplication.",
                 transition("FIRMWARE", "ERROR"), kFailed, transition("ERROR", "ERROR")}}));
}  // namespace
