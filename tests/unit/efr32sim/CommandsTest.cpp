#include "HostLine.h"
#include "efr32sim/Phone.h"

using namespace efr32sim;

namespace {
struct Step
{
    const char* name;
    std::string command;  // class, identifier and payload, in hexadecimal
    std::string packets;  // what the chip sends, one packet behind the other
};

void play(HostLine& host, const std::vector<Step>& steps)
{
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        std::string packet{0x20, static_cast<char>(step.command.size() / 2 - 2)};
        for (std::size_t at = 0; at < step.command.size(); at += 2)
            packet += static_cast<char>(std::stoi(step.command.substr(at, 2), nullptr, 16));
        host.send(packet);
        std::string packets;
        std::string next = host.readPacket();
        for (; !next.empty() && packets.size() + next.size() < step.packets.size(); next = host.readPacket())
            packets += next;
        ASSERT_EQ(packets + next, step.packets);
    }
}

const std::vector<Step> kAlone{
    {"hello", "0100", "200201000000"},
    {"the address comes least significant byte first", "0103", "20060103010203040506"},
    {"halt", "010c01", "2002010c0000"},
    {"transmit power of 10 dBm", "010a6400", "2002010a6400"},
    {"more power than the radio has is cut to 19 dBm", "010a2c01", "2002010abe00"},
    {"end of procedure", "0303", "200203030000"},
    {"advertising data", "030c000003020105", "2002030c0000"},
    {"scan response", "030c00010403094556", "2002030c0000"},
    {"32 bytes of advertising data are refused", "030c000020" + std::string(64, '0'), "2002030c8001"},
    {"timing", "030e00a000000040010000000000", "2002030e0000"},
    {"a minimum above the maximum is refused", "030e00a1000000a0000000000000", "2002030e8001"},
    {"channel map", "030f0005", "2002030f0000"},
    {"no channel at all is refused", "030f0000", "2002030f8001"},
    {"connection timing", "032218002800000064000000ffff", "200203220000"},
    {"start of advertising", "0314000402", "200203140000"},
    {"stop of advertising", "031500", "200203150000"},
    {"RSSI without a connection is refused", "080101", "200208010101"},
    {"closing without a connection is refused", "080401", "200208040101"},
    {"a notification without a connection is refused", "0a05011a000107", "20020a050101"},
    {"write of an attribute", "0a021a000000020809", "20020a020000"},
    {"read from an offset", "0a001a000100", "20040a0000000109"},
    {"an unknown attribute is refused", "0a0063000000", "20030a00010400"},
    {"type of an attribute", "0a010b00", "20050a01000002002a"},
    {"find of an attribute by its type", "0a06010002002a", "20040a0600000b00"},
    {"transmit test", "0e0000251301", "20020e000000a0040e0000000000"},
    {"end of the test counts no packets sent", "0e02", "20020e020000a0040e000000dc05"},
    {"receive test", "0e011301", "20020e010000a0040e0000000000"},
    {"end of the test counts the packets", "0e02", "20020e020000a0040e000000dc05"},
    {"bondable", "0f0001", "20020f000000"},
    {"security configuration", "0f010403", "20020f010000"},
    {"unknown capabilities are refused", "0f010405", "20020f018001"},
    {"bonding configuration", "0f020400", "20020f020000"},
    {"passkey", "0f1040e20100", "20020f100000"},
    {"the known bonds", "0f0b", "20020f0b0000a0080f050011121314151600a0000f06"},
    {"deleting a bond", "0f0600", "20020f060000"},
    {"deleting it again is refused", "0f0600", "20020f068001"},
    {"deleting all bonds", "0f07", "20020f070000"},
    {"an empty list of bonds", "0f0b", "20020f0b0000a0000f06"},
    {"passkey for nobody is refused", "0f080100000000", "20020f080101"},
    {"comparison for nobody is refused", "0f090101", "20020f090101"},
    {"confirmation for nobody is refused", "0f0e0101", "20020f0e0101"},
    {"more security for nobody is refused", "0f0401", "20020f040101"},
    {"application version", "ff000100", "200bff000000080000020003000100"},
    {"set power", "ff0002024d", "2005ff000000020200"},
    {"get power", "ff000103", "2006ff0000000303004d"},
    {"set power mode", "ff00020401", "2005ff000000020400"},
    {"get power mode", "ff000105", "2006ff00000003050001"},
    {"set channel", "ff00020627", "2005ff000000020600"},
    {"channel 40 is refused in the reply", "ff00020628", "2005ff000000020601"},
    {"get channel", "ff000107", "2006ff00000003070027"},
    {"set tuning", "ff00050801020304", "2005ff000000020800"},
    {"get tuning", "ff000109", "2009ff00000006090001020304"},
    {"save tuning", "ff00050a05060708", "2005ff000000020a00"},
    {"get saved tuning", "ff00010b", "2009ff000000060b0005060708"},
    {"start of a stream", "ff00020c01", "2005ff000000020c00"},
    {"stop of a stream", "ff00010d", "2005ff000000020d00"},
    {"radio library version", "ff00010e", "2011ff0000000e0e00000000000208090000000000"},
    {"an unknown request is refused in the reply", "ff000101", "2005ff000000020101"},
    {"an unknown command", "42170102", "200242178301"},
    {"a payload too short is refused", "030f00", "2002030f8001"},
    {"an array that ends early is refused", "ff000900", "2002ff008001"},
};

const std::vector<Step> kWithPhone{
    {"RSSI is reported after the response", "080101", "200208010000a00308030100c9"},
    {"notification", "0a05011a000107", "20020a050000"},
    {"characteristic notification setting", "0905011a0001", "200209050000"},
    {"read response", "0a03011a00000105", "20020a030000"},
    {"write response", "0a04011a0000", "20020a040000"},
    {"connectable advertising beside the connection is refused", "0314000402", "200203148101"},
    {"passkey while none is asked for is refused", "0f080100000000", "20020f088101"},
    {"security without bondable mode fails", "0f0401", "20020f040000a0030f04010503"},
    {"bondable", "0f0001", "20020f000000"},
    {"more security bonds at once", "0f0401", "20020f040000a0020f030100a00a08020118000000f401011b00"},
    {"close", "080401", "200208040000a0030801160201"},
    {"close again is refused", "080401", "200208040101"},
    {"reset boots the firmware without a response", "010100", "a00e010002000d0007008000000209010100"},
    {"the reset has forgotten all but the bond", "0f0b", "20020f0b0000a0080f0500a1a2a3a4a5a600a0000f06"},
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

    play(*running.host,
         {{"start", "0314000402", "200203140000"}, {"not bondable", "0f0000", "20020f000000"}});
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
    running.host->send(
        std::string("\x00\xA0\xFF\x21\x01\x01\x00", 7));  // noise, an event, 257 bytes announced
    EXPECT_EQ(running.host->command(0x01, 0x00), "200201000000");
    Bytes refused;
    while (const auto event = events.next(Milliseconds(0))) {
        const Bytes more = event->kind == EventKind::PacketRefused ? event->bytes("bytes") : Bytes();
        refused.insert(refused.end(), more.begin(), more.end());
    }
    EXPECT_EQ(toHex(refused), "00a0ff21010100");
}

constexpr CommandId kHello{0x01, 0x00};
const std::string kAnswer = "200201000000";

TEST(Faults, HitTheirMomentOnceAndLeaveNothingBehind)
{
    // clang-format off
    for (const auto& [name, fault, first, second] : Rows<Fault, std::string, std::string>{
             {"noise before the packet", {.kind = FaultKind::NoiseBeforePacket}, "00ff7f" + kAnswer, kAnswer},
             {"chosen noise", {.kind = FaultKind::NoiseBeforePacket, .bytes = {0x20}}, "20" + kAnswer, kAnswer},
             {"packet cut short", {.kind = FaultKind::CutPacket, .length = 5}, "2002010000", kAnswer},
             {"oversize header", {.kind = FaultKind::OversizeHeader}, "21010100" + kAnswer, kAnswer},
             {"packet sent twice", {.kind = FaultKind::DoublePacket}, kAnswer + kAnswer, kAnswer},
             {"inverted bit", {.kind = FaultKind::FlippedBit, .length = 33}, "200201000200", kAnswer},
             {"lost response", {.kind = FaultKind::LostResponse, .command = kHello}, "", kAnswer},
             {"late response", {.kind = FaultKind::LateResponse, .delay = 20ms}, kAnswer, kAnswer},
             {"error response", {.kind = FaultKind::ErrorResponse, .result = 0x0185}, "200201008501", kAnswer},
             {"event before it", {.kind = FaultKind::EventBeforeResponse}, "a00308030100c4" + kAnswer, kAnswer},
             {"second opportunity", {.kind = FaultKind::ErrorResponse, .skip = 1}, kAnswer, "200201008101"}}) {
        // clang-format on
        SCOPED_TRACE(name);
        RunningChip running;
        auto events = running.chip.follow();
        running.chip.inject(fault);
        for (const std::string& expected : {first, second}) {
            running.host->sendCommand(0x01, 0x00);
            const std::string got = running.host->read(expected.size() / 2);
            EXPECT_EQ(toHex({reinterpret_cast<const std::uint8_t*>(got.data()), got.size()}), expected);
        }
        EXPECT_EQ(events.drain(EventKind::Fault), 1U);
    }
}
}  // namespace
