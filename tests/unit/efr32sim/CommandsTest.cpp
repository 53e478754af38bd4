#include "HostLine.h"
#include "efr32sim/Phone.h"

#include <gtest/gtest.h>

#include <vector>

using namespace efr32sim;

namespace {
struct Step
{
    const char* name;
    int classId;
    int id;
    std::vector<int> payload;
    std::vector<const char*> packets;  // what the chip sends, in this order
};

void play(HostLine& host, const std::vector<Step>& steps)
{
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        std::string packet{0x20, static_cast<char>(step.payload.size()), static_cast<char>(step.classId),
                           static_cast<char>(step.id)};
        packet.append(step.payload.begin(), step.payload.end());
        host.send(packet);
        for (const char* expected : step.packets)
            ASSERT_EQ(host.readPacket(), expected);
    }
}

std::vector<int> advertisingData(int usage, std::vector<int> data)
{
    data.insert(data.begin(), {0, usage, static_cast<int>(data.size())});
    return data;
}

const std::vector<Step> kAlone{
    {"hello", 0x01, 0x00, {}, {"200201000000"}},
    {"the address comes least significant byte first", 0x01, 0x03, {}, {"20060103010203040506"}},
    {"halt", 0x01, 0x0C, {1}, {"2002010c0000"}},
    {"transmit power of 10 dBm", 0x01, 0x0A, {0x64, 0x00}, {"2002010a6400"}},
    {"more power than the radio has is cut to 19 dBm", 0x01, 0x0A, {0x2C, 0x01}, {"2002010abe00"}},
    {"end of procedure", 0x03, 0x03, {}, {"200203030000"}},
    {"advertising data", 0x03, 0x0C, advertisingData(0, {2, 1, 5}), {"2002030c0000"}},
    {"scan response", 0x03, 0x0C, advertisingData(1, {3, 9, 'E', 'V'}), {"2002030c0000"}},
    {"32 bytes of advertising data are refused",
     0x03,
     0x0C,
     advertisingData(0, std::vector<int>(32)),
     {"2002030c8001"}},
    {"timing", 0x03, 0x0E, {0, 160, 0, 0, 0, 64, 1, 0, 0, 0, 0, 0}, {"2002030e0000"}},
    {"a minimum above the maximum is refused",
     0x03,
     0x0E,
     {0, 161, 0, 0, 0, 160, 0, 0, 0, 0, 0, 0},
     {"2002030e8001"}},
    {"channel map", 0x03, 0x0F, {0, 5}, {"2002030f0000"}},
    {"no channel at all is refused", 0x03, 0x0F, {0, 0}, {"2002030f8001"}},
    {"connection timing", 0x03, 0x22, {24, 0, 40, 0, 0, 0, 100, 0, 0, 0, 255, 255}, {"200203220000"}},
    {"start of advertising", 0x03, 0x14, {0, 4, 2}, {"200203140000"}},
    {"stop of advertising", 0x03, 0x15, {0}, {"200203150000"}},
    {"RSSI without a connection is refused", 0x08, 0x01, {1}, {"200208010101"}},
    {"closing without a connection is refused", 0x08, 0x04, {1}, {"200208040101"}},
    {"a notification without a connection is refused", 0x0A, 0x05, {1, 26, 0, 1, 7}, {"20020a050101"}},
    {"write of an attribute", 0x0A, 0x02, {26, 0, 0, 0, 2, 8, 9}, {"20020a020000"}},
    {"read from an offset", 0x0A, 0x00, {26, 0, 1, 0}, {"20040a0000000109"}},
    {"an unknown attribute is refused", 0x0A, 0x00, {99, 0, 0, 0}, {"20030a00010400"}},
    {"type of an attribute", 0x0A, 0x01, {11, 0}, {"20050a01000002002a"}},
    {"find of an attribute by its type", 0x0A, 0x06, {1, 0, 2, 0x00, 0x2A}, {"20040a0600000b00"}},
    {"transmit test", 0x0E, 0x00, {0, 37, 19, 1}, {"20020e000000", "a0040e0000000000"}},
    {"end of the test counts no packets sent", 0x0E, 0x02, {}, {"20020e020000", "a0040e000000dc05"}},
    {"receive test", 0x0E, 0x01, {19, 1}, {"20020e010000", "a0040e0000000000"}},
    {"end of the test counts the packets", 0x0E, 0x02, {}, {"20020e020000", "a0040e000000dc05"}},
    {"bondable", 0x0F, 0x00, {1}, {"20020f000000"}},
    {"security configuration", 0x0F, 0x01, {4, 3}, {"20020f010000"}},
    {"unknown capabilities are refused", 0x0F, 0x01, {4, 5}, {"20020f018001"}},
    {"bonding configuration", 0x0F, 0x02, {4, 0}, {"20020f020000"}},
    {"passkey", 0x0F, 0x10, {0x40, 0xE2, 0x01, 0x00}, {"20020f100000"}},
    {"the known bonds", 0x0F, 0x0B, {}, {"20020f0b0000", "a0080f050011121314151600", "a0000f06"}},
    {"deleting a bond", 0x0F, 0x06, {0}, {"20020f060000"}},
    {"deleting it again is refused", 0x0F, 0x06, {0}, {"20020f068001"}},
    {"deleting all bonds", 0x0F, 0x07, {}, {"20020f070000"}},
    {"an empty list of bonds", 0x0F, 0x0B, {}, {"20020f0b0000", "a0000f06"}},
    {"passkey for nobody is refused", 0x0F, 0x08, {1, 0, 0, 0, 0}, {"20020f080101"}},
    {"comparison for nobody is refused", 0x0F, 0x09, {1, 1}, {"20020f090101"}},
    {"confirmation for nobody is refused", 0x0F, 0x0E, {1, 1}, {"20020f0e0101"}},
    {"more security for nobody is refused", 0x0F, 0x04, {1}, {"20020f040101"}},
    {"application version", 0xFF, 0x00, {1, 0}, {"200bff000000080000020003000100"}},
    {"set power", 0xFF, 0x00, {2, 2, 77}, {"2005ff000000020200"}},
    {"get power", 0xFF, 0x00, {1, 3}, {"2006ff0000000303004d"}},
    {"set power mode", 0xFF, 0x00, {2, 4, 1}, {"2005ff000000020400"}},
    {"get power mode", 0xFF, 0x00, {1, 5}, {"2006ff00000003050001"}},
    {"set channel", 0xFF, 0x00, {2, 6, 39}, {"2005ff000000020600"}},
    {"channel 40 is refused in the reply", 0xFF, 0x00, {2, 6, 40}, {"2005ff000000020601"}},
    {"get channel", 0xFF, 0x00, {1, 7}, {"2006ff00000003070027"}},
    {"set tuning", 0xFF, 0x00, {5, 8, 1, 2, 3, 4}, {"2005ff000000020800"}},
    {"get tuning", 0xFF, 0x00, {1, 9}, {"2009ff00000006090001020304"}},
    {"save tuning", 0xFF, 0x00, {5, 10, 5, 6, 7, 8}, {"2005ff000000020a00"}},
    {"get saved tuning", 0xFF, 0x00, {1, 11}, {"2009ff000000060b0005060708"}},
    {"start of a stream", 0xFF, 0x00, {2, 12, 1}, {"2005ff000000020c00"}},
    {"stop of a stream", 0xFF, 0x00, {1, 13}, {"2005ff000000020d00"}},
    {"radio library version", 0xFF, 0x00, {1, 14}, {"2011ff0000000e0e00000000000208090000000000"}},
    {"an unknown request is refused in the reply", 0xFF, 0x00, {1, 1}, {"2005ff000000020101"}},
    {"an unknown command", 0x42, 0x17, {1, 2}, {"200242178301"}},
    {"a payload too short is refused", 0x03, 0x0F, {0}, {"2002030f8001"}},
    {"an array that ends early is refused", 0xFF, 0x00, {9, 0}, {"2002ff008001"}},
};

const std::vector<Step> kWithPhone{
    {"RSSI is reported after the response", 0x08, 0x01, {1}, {"200208010000", "a00308030100c9"}},
    {"notification", 0x0A, 0x05, {1, 26, 0, 1, 7}, {"20020a050000"}},
    {"characteristic notification setting", 0x09, 0x05, {1, 26, 0, 1}, {"200209050000"}},
    {"read response", 0x0A, 0x03, {1, 26, 0, 0, 1, 5}, {"20020a030000"}},
    {"write response", 0x0A, 0x04, {1, 26, 0, 0}, {"20020a040000"}},
    {"connectable advertising beside the connection is refused", 0x03, 0x14, {0, 4, 2}, {"200203148101"}},
    {"passkey while none is asked for is refused", 0x0F, 0x08, {1, 0, 0, 0, 0}, {"20020f088101"}},
    {"security without bondable mode fails", 0x0F, 0x04, {1}, {"20020f040000", "a0030f04010503"}},
    {"bondable", 0x0F, 0x00, {1}, {"20020f000000"}},
    {"more security bonds at once",
     0x0F,
     0x04,
     {1},
     {"20020f040000", "a0020f030100", "a00a08020118000000f401011b00"}},
    {"close", 0x08, 0x04, {1}, {"200208040000", "a0030801160201"}},
    {"close again is refused", 0x08, 0x04, {1}, {"200208040101"}},
    {"reset boots the firmware without a response",
     0x01,
     0x01,
     {0},
     {"a00e010002000d0007008000000209010100"}},
    {"the reset has forgotten all but the bond",
     0x0F,
     0x0B,
     {},
     {"20020f0b0000", "a0080f0500a1a2a3a4a5a600", "a0000f06"}},
};

TEST(Commands, AnswerAsTheFirmwareDoes)
{
    RunningChip running;
    running.chip.addBond({0x11, 0x12, 0x13, 0x14, 0x15, 0x16}, 0);
    running.chip.setDtmPackets(1500);
    running.chip.setRssi(-55);
    play(*running.host, kAlone);

    const AirState air = running.chip.air();
    EXPECT_EQ(air.channelMap, 5);
    EXPECT_EQ(air.intervalMax, 320U);
    EXPECT_FALSE(air.advertising);

    play(*running.host, {{"start", 0x03, 0x14, {0, 4, 2}, {"200203140000"}},
                         {"not bondable", 0x0F, 0x00, {0}, {"20020f000000"}}});
    Phone phone(running.chip);
    ASSERT_TRUE(phone.connect());
    for (const char* expected : {"a00b0800a1a2a3a4a5a6000001ff00", "a00a08020118000000f401001b00",
                                 "a00208040101", "a003090001f700", "a0060a03011a00010100"})
        EXPECT_EQ(running.host->readPacket(), expected);
    play(*running.host, kWithPhone);
    EXPECT_FALSE(phone.connected());
    EXPECT_FALSE(running.chip.air().advertising);
}

TEST(Commands, BytesThatAreNoPacketAreReportedAndSkipped)
{
    RunningChip running;
    auto events = running.chip.follow();
    running.host->send({0x00, 0xA0, 0xFF, 0x21, 0x01, 0x01, 0x00});  // noise, an event, 257 bytes announced
    EXPECT_EQ(running.host->command(0x01, 0x00), "200201000000");
    Bytes refused;
    while (const auto event = events.next(Milliseconds(0))) {
        const Bytes more = event->kind == EventKind::PacketRefused ? event->bytes("bytes") : Bytes();
        refused.insert(refused.end(), more.begin(), more.end());
    }
    EXPECT_EQ(toHex(refused), "00a0ff21010100");
}

TEST(Advertising, EndsAfterItsDurationAndTellsTheHost)
{
    RunningChip running;
    play(*running.host,
         {{"timing with 30 ms", 0x03, 0x0E, {0, 160, 0, 0, 0, 160, 0, 0, 0, 3, 0, 0}, {"2002030e0000"}},
          {"start", 0x03, 0x14, {0, 4, 2}, {"200203140000", "a001030100"}}});
    EXPECT_FALSE(running.chip.air().advertising);
}

struct InjectedFault
{
    const char* name;
    Fault fault;
    std::string first;   // what answers the first hello
    std::string second;  // and the second, once the fault is used up
};

constexpr CommandId kHello{0x01, 0x00};
const std::string kAnswer = "200201000000";

TEST(Faults, HitTheirMomentOnceAndLeaveNothingBehind)
{
    const InjectedFault rows[] = {
        {"noise before the packet", {.kind = FaultKind::NoiseBeforePacket}, "00ff7f" + kAnswer, kAnswer},
        {"chosen noise", {.kind = FaultKind::NoiseBeforePacket, .bytes = {0x20}}, "20" + kAnswer, kAnswer},
        {"packet cut short", {.kind = FaultKind::CutPacket, .length = 5}, "2002010000", kAnswer},
        {"oversize header", {.kind = FaultKind::OversizeHeader}, "21010100" + kAnswer, kAnswer},
        {"lost response", {.kind = FaultKind::LostResponse, .command = kHello}, "", kAnswer},
        {"late response", {.kind = FaultKind::LateResponse, .delay = Milliseconds(20)}, kAnswer, kAnswer},
        {"error response", {.kind = FaultKind::ErrorResponse, .result = 0x0185}, "200201008501", kAnswer},
        {"event before it", {.kind = FaultKind::EventBeforeResponse}, "a00308030100c4" + kAnswer, kAnswer},
        {"second opportunity", {.kind = FaultKind::ErrorResponse, .skip = 1}, kAnswer, "200201008101"},
    };
    for (const InjectedFault& row : rows) {
        SCOPED_TRACE(row.name);
        RunningChip running;
        auto events = running.chip.follow();
        running.chip.inject(row.fault);
        for (const std::string& expected : {row.first, row.second}) {
            running.host->sendCommand(0x01, 0x00);
            const std::string got = running.host->read(expected.size() / 2);
            EXPECT_EQ(toHex({reinterpret_cast<const std::uint8_t*>(got.data()), got.size()}), expected);
        }
        EXPECT_EQ(events.drain(EventKind::Fault), 1U);
    }
}

TEST(Faults, ConcernOnlyTheirCommand)
{
    RunningChip running;
    running.chip.inject({.kind = FaultKind::LostResponse, .count = 0, .command = CommandId{0x01, 0x03}});
    running.host->sendCommand(0x01, 0x03);
    EXPECT_EQ(running.host->command(0x01, 0x00), kAnswer);
    running.chip.clearFaults();
    EXPECT_EQ(running.host->command(0x01, 0x03), "20060103010203040506");
}

TEST(Faults, SilenceLastsItsTimeAndSwallowsWhatTheHostSays)
{
    RunningChip running;
    auto events = running.chip.follow();
    running.chip.inject({.kind = FaultKind::Silence, .count = 0});
    running.chip.sendBurst(1);
    running.host->sendCommand(0x01, 0x03);
    ASSERT_TRUE(events.waitFor(EventKind::Unheard));
    running.chip.clearFaults();
    EXPECT_EQ(running.host->command(0x01, 0x00), kAnswer);
}

TEST(Faults, ABurstOfEventsArrivesWhole)
{
    RunningChip running;
    ASSERT_TRUE(running.chip.sendBurst(40));
    for (int i = 0; i < 40; ++i)
        ASSERT_EQ(running.host->readPacket(), "a00308030100c4");
}

TEST(Faults, ASpontaneousRebootEndsTheConnectionAndSendsABootEvent)
{
    RunningChip running;
    running.host->command(0x03, 0x14, {0, 4, 2});
    Phone phone(running.chip, {.subscribe = false});
    ASSERT_TRUE(phone.connect());
    for (int i = 0; i < 4; ++i)
        running.host->readPacket();
    running.chip.reboot();
    EXPECT_TRUE(phone.waitDisconnected());
    EXPECT_EQ(running.host->readPacket(), running.bootEvent);
}
}  // namespace
