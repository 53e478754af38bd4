// What the line destroys: the station must come back without help.

#include "BluetoothManager.h"
#include "BridgeTasks.h"
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
    static void SetUpTestSuite() { BridgeTasks::setWatchPeriod(endtoend::Milliseconds(300)); }
    static bool reaches(int state)
    {
        return waitUntil([state] { return BluetoothManager::instance().getBleState() == state; });
    }
};

TEST_F(SelfHealing, AStationServesItsPhoneAfterThisWasLost)
{
    const auto disconnects = [this] { phone.disconnect(); };
    const auto connects = [this] { EXPECT_TRUE(phone.connect()); };
    const auto changes = [this] {
        phone.disconnect();
        EXPECT_TRUE(phone.connect());
    };
    const auto restarts = [this] {
        station().chip.reboot();
        EXPECT_TRUE(waitUntil([this] { return !phone.connected(); }));
    };
    const Fault lostEnd{.kind = FaultKind::LostEvent, .command = CommandId{0x08, 0x01}};
    const Fault lostBeginning{.kind = FaultKind::LostEvent, .command = CommandId{0x08, 0x00}};
    const Fault cutEnd{.kind = FaultKind::CutPacket, .command = CommandId{0x08, 0x01}, .length = 6};
    const Fault cutBoot{.kind = FaultKind::CutPacket, .command = CommandId{0x01, 0x00}, .length = 21};
    const Fault lostBoot{.kind = FaultKind::LostBoot};
    const Fault lostAnswer{.kind = FaultKind::LostResponse, .skip = 1, .command = CommandId{0x03, 0x0C}};
    const Fault lostStarts{.kind = FaultKind::LostResponse, .count = 4, .command = CommandId{0x03, 0x14}};
    const char* const end = "<NOTIC> [NCP_MANAGER] Event lost: no phone is connected any more";
    const char* const beginning = "<NOTIC> [NCP_MANAGER] Event lost: a phone is connected";
    const char* const silence = "<NOTIC> [Brisca] Neither advertising nor connected for 10 s";
    const struct
    {
        const char* name;
        int before;  // link state
        std::vector<Fault> faults;
        std::function<void()> deed;
        const char* line;
        bool mayBeARestart = true;
    } rows[] = {
        {"the end of a connection", kConnected, {lostEnd}, disconnects, end},
        {"the last byte of the end of a connection", kConnected, {cutEnd}, disconnects, "", false},
        {"the last byte of a restart", kConnected, {cutBoot}, restarts, ""},
        {"the beginning of a connection", kAdvertising, {lostBeginning}, connects, beginning, false},
        {"the restart of a connected chip", kConnected, {lostBoot}, restarts, end},
        {"the restart of an advertising chip", kAdvertising, {lostBoot}, restarts, ""},
        {"the answer to the advertising data", kConnected, {lostAnswer}, disconnects, silence},
        {"the answers to the start, and the next beginning",
         kConnected,
         {lostStarts, lostBeginning},
         changes,
         beginning,
         false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const StdoutCapture log;
        if (row.before == kAdvertising)
            phone.disconnect();
        ASSERT_TRUE(reaches(row.before));
        auto events = station().chip.follow();
        for (const Fault& fault : row.faults)
            station().chip.inject(fault);
        row.deed();
        ASSERT_TRUE(*row.line == '\0' || waitUntil([&] { return log.contains(row.line); }));
        ASSERT_TRUE(phone.connected() || phone.connect());
        EXPECT_TRUE(reaches(kConnected));
        expectService();
        EXPECT_EQ(station().chip.air().advertisingData.size(), 17U);
        if (row.mayBeARestart) {
            EXPECT_TRUE(events.waitFor(EventKind::Command, [](const efr32sim::Event& event) {
                return event.text("name") == "sm_configure" &&
                       event.bytes("payload") == endtoend::Bytes{4, 3};
            }));
        }
    }
}
}  // namespace
