// A restart or a disabling at the worst moment.
#include "Endurance.h"

namespace {
using efr32sim::Bytes;
using efr32sim::CommandId;
using efr32sim::EventCursor;
using efr32sim::EventKind;
using efr32sim::FaultKind;

constexpr CommandId kStartAdvertising{0x03, 0x14};
constexpr CommandId kSendNotification{0x0A, 0x05};

constexpr const char* kApplication = "/evse/app/bin/chp";
constexpr const char* kWaits = "/tmp/application.waits";

/// What a moment works with.
struct Scene
{
    efr32sim::Chip& chip;
    efr32sim::Phone& phone;  // connected
    BusClient& client;
    EventCursor events;  // from before the moment
};

struct Moment
{
    const char* name;
    void (*reach)(Scene&);
};

/// While a phone is connected in FIRMWARE. A function ends when the moment has come.
constexpr Moment kMoments[] = {
    {"MessageHalfReceived",
     [](Scene& scene) {
         const Bytes first{0x81, 'h'};
         ASSERT_TRUE(scene.phone.writeCommand(first));
     }},
    {"AnswerHalfSent",
     [](Scene& scene) {
         ASSERT_TRUE(scene.phone.writeMessage(std::string(1000, 'a')));
         ASSERT_TRUE(scene.events.waitFor(EventKind::Notification));
     }},
    {"InsideAPacket",
     [](Scene& scene) {
         const Bytes cut{0xA0, 0x10, 0x08, 0x00, 1, 2, 3};
         ASSERT_TRUE(scene.chip.sendRaw(cut));
     }},
    {"AdvertisingIsRetried",
     [](Scene& scene) {
         scene.chip.inject({.kind = FaultKind::ErrorResponse, .count = 0, .command = kStartAdvertising});
         scene.phone.disconnect();
         ASSERT_TRUE(scene.events.waitFor(EventKind::Fault));
         ASSERT_TRUE(scene.events.waitFor(EventKind::Fault));
     }},
    {"ResponseNeverComes",
     [](Scene& scene) {
         scene.chip.inject({.kind = FaultKind::LostResponse, .count = 0, .command = kSendNotification});
         ASSERT_TRUE(scene.phone.writeMessage("lost"));
         ASSERT_TRUE(scene.events.waitFor(EventKind::Fault));
     }},
    {"PhoneHasJustConnected",
     [](Scene& scene) {
         scene.phone.disconnect();
         ASSERT_TRUE(scene.phone.connect());
     }},
    {"LineHangsUp",
     [](Scene& scene) {
         scene.chip.hangUp();
         scene.chip.plugIn();
     }},
    {"EntryInProgress",  // pulse, prompt, application and stack of another restart; its boot event is due
     [](Scene& scene) {
         scene.client.send("BriscaRestart");
         ASSERT_TRUE(scene.events.waitFor(EventKind::ResetLow));
     }},
    {"ApplicationStarts",  // for another restart; it has not opened its pipes yet
     [](Scene& scene) {
         std::filesystem::remove(kWaits);
         std::filesystem::remove(kApplication);
         std::ofstream(kApplication) << "#!/bin/sh\nmkdir " << kWaits << " && exec sleep infinity\n"
                                     << "exec " APPLICATION_PROGRAM " \"$@\"\n";
         std::filesystem::permissions(kApplication, std::filesystem::perms::owner_all);
         scene.client.send("BriscaRestart");
         ASSERT_TRUE(waitUntil([] { return std::filesystem::exists(kWaits); }));
     }},
    {"BootEventIsDue",
     [](Scene& scene) {
         scene.client.send("BriscaRestart");
         ASSERT_EQ(scene.client.call("getBriscaState"), kFirmware);
     }},
};

class Moments : public Endurance, public testing::WithParamInterface<Moment>
{
protected:
    /// Sends the request at the moment, and lets the chip recover when it is reset.
    void disturb(const char* request, int round)
    {
        SCOPED_TRACE(std::string(request) + " " + std::to_string(round));
        efr32sim::Phone phone(chip);
        ASSERT_TRUE(phone.connect());
        Scene scene{chip, phone, *client, chip.follow()};
        ASSERT_NO_FATAL_FAILURE(GetParam().reach(scene));
        auto events = chip.follow();
        client->send(request);
        ASSERT_TRUE(events.waitFor(EventKind::ResetLow));
        chip.clearFaults();
    }
};

TEST_P(Moments, LeadToTheRightStateAndTheNextRequestWorks)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    for (int round = 0; round < rounds(2); ++round) {
        ASSERT_NO_FATAL_FAILURE(disturb("BriscaRestart", round));
        ASSERT_EQ(client->call("getBriscaState"), kFirmware);
        ASSERT_NO_FATAL_FAILURE(expectService("after restart " + std::to_string(round)));
        ASSERT_NO_FATAL_FAILURE(disturb("disableBluetooth", round));
        ASSERT_EQ(client->call("getBriscaState"), kDisabled);
        EXPECT_EQ(chip.mode(), efr32sim::Mode::Held);
        client->send("enableBluetooth");
        ASSERT_NO_FATAL_FAILURE(expectService("after enabling " + std::to_string(round)));
        endRound(round);
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, Moments, testing::ValuesIn(kMoments),
                         [](const auto& row) { return std::string(row.param.name); });

using UploadMoment = Endurance;

TEST_F(UploadMoment, BeforeTheChipHasAskedForTheFirstBlock)
{
    ASSERT_NO_FATAL_FAILURE(startIn("BOOTLOADER"));
    std::ofstream(kImage) << std::string(200'000, 'f');
    for (int round = 0; round < rounds(2); ++round) {
        ASSERT_EQ(client->call("startFirmwareUpdate", kImage), "true");
        client->send("BriscaRestart");
        ASSERT_EQ(client->waitSignal(), "fwUpdateComplete false");
        ASSERT_EQ(client->call("getBriscaState"), kBootloader);
        EXPECT_THAT(client->call("getFirmwareVersion"), HasSubstr("BL >"));
        endRound(round);
    }
    client->send("startFirmwareApp");
    ASSERT_TRUE(awaitSignal("bleIsStarted"));
    expectService("after all uploads");
}
}  // namespace
