// What the line destroys: the station must come back without help.

#include "BluetoothManager.h"
#include "EventPump.h"
#include "StationFixture.h"

namespace {
using efr32sim::CommandId;
using efr32sim::EventKind;
using efr32sim::Fault;
using efr32sim::FaultKind;

constexpr int kAdvertising = 2;
constexpr int kConnected = 4;

class SelfHealing : public StationFixture
{
protected:
    static void SetUpTestSuite() { EventPump::setWatchPeriod(endtoend::Milliseconds(300)); }
    static bool reaches(int state)
    {
        return waitUntil([state] { return BluetoothManager::instance().getBleState() == state; });
    }
};

TEST_F(SelfHealing, AStationServesItsPhoneAfterThisWasLost)
{
    const auto disconnects = [this] { phone.disconnect(); };
    const auto changes = [this] {
        phone.disconnect();
        EXPECT_TRUE(phone.connect());
    };
    const auto restarts = [this] {
        station().chip.reboot();
        EXPECT_TRUE(waitUntil([this] { return !phone.connected(); }));
    };
    const Fault lostBeginning{.kind = FaultKind::LostEvent, .command = CommandId{0x08, 0x00}};
    const Fault lostBoot{.kind = FaultKind::LostBoot};
    // The scan response's, too: late, it would be taken for that of the advertising data.
    const Fault lostAnswer{.kind = FaultKind::LostResponse, .count = 2, .command = CommandId{0x03, 0x0C}};
    // More than those behind which the chip is asked for a connection.
    const Fault refusals{.kind = FaultKind::ErrorResponse, .count = 25, .command = CommandId{0x03, 0x14}};
    const Fault lostStarts{
        .kind = FaultKind::LostResponse, .count = 4, .skip = 25, .command = CommandId{0x03, 0x14}};
    const char* const end = "<NOTIC> [NCP_MANAGER] Event lost: no phone is connected any more";
    const char* const beginning = "<NOTIC> [NCP_MANAGER] Event lost: a phone is connected";
    const char* const silence = "<NOTIC> [Brisca] Neither advertising nor connected for 10 s";
    using Faults = std::vector<Fault>;
    // clang-format off
    for (const auto& [name, before, faults, deed, line, mayBeARestart] :
         Rows<int, Faults, std::function<void()>, std::string, bool>{
             {"the restart of a connected chip", kConnected, {lostBoot}, restarts, end, true},
             {"the restart of an advertising chip", kAdvertising, {lostBoot}, restarts, "", true},
             {"the answer to the advertising data", kConnected, {lostAnswer}, disconnects, silence, true},
             {"the answers to a late start, and the next beginning", kConnected,
              {refusals, lostStarts, lostBeginning}, changes, beginning, false}}) {
        // clang-format on
        SCOPED_TRACE(name);
        const StdoutCapture log;
        if (before == kAdvertising)
            phone.disconnect();
        ASSERT_TRUE(reaches(before));
        auto events = station().chip.follow();
        for (const Fault& fault : faults)
            station().chip.inject(fault);
        deed();
        ASSERT_TRUE(line.empty() || waitUntil([&, &text = line] { return log.contains(text); }));
        ASSERT_TRUE(phone.connected() || phone.connect());
        EXPECT_TRUE(reaches(kConnected));
        expectService();
        EXPECT_EQ(station().chip.air().advertisingData.size(), 17U);
        if (mayBeARestart) {
            EXPECT_TRUE(events.waitFor(EventKind::Command, [](const efr32sim::Event& event) {
                return event.text("name") == "sm_configure" &&
                       event.bytes("payload") == endtoend::Bytes{4, 3};
            }));
        }
    }
}

TEST_F(SelfHealing, AdvertisingIsRefreshedOnceInSixPeriodsAndSoonerOnlyAfterARefusal)
{
    phone.disconnect();
    ASSERT_TRUE(reaches(kAdvertising));
    efr32sim::Chip& chip = station().chip;
    auto events = chip.follow();
    const auto questionsUntilRefresh = [&events] {
        int questions = 0;
        for (auto event = events.waitFor(EventKind::Command); event;
             event = events.waitFor(EventKind::Command)) {
            const bool isStop = event->number("class") == 0x03 && event->number("id") == 0x15;
            if (isStop)
                break;
            const auto group = event->number("class");
            // The refresh configures the security once; a link that agrees is only asked for.
            questions += group == 0x08 ? 1 : group == 0x0F ? -1 : 0;
        }
        return questions;
    };
    (void)questionsUntilRefresh();
    // A busy machine loses a response now and then, and then the refresh has failed, too.
    EXPECT_TRUE(waitUntil([&] { return questionsUntilRefresh() > 3; }));
    const auto isRepeatedInSilence = [&] {
        const StdoutCapture log;
        chip.inject({.kind = FaultKind::ErrorResponse, .count = 2, .command = CommandId{0x03, 0x0C}});
        EXPECT_TRUE(events.waitFor(EventKind::Fault));
        EXPECT_TRUE(events.waitFor(EventKind::Advertising,
                                   [](const auto& event) { return event.number("on") == 1; }));
        return !log.contains("Neither advertising nor connected");
    };
    EXPECT_TRUE(isRepeatedInSilence() || isRepeatedInSilence() || isRepeatedInSilence());
}
}  // namespace
