#include "HostLine.h"

using namespace efr32sim;

namespace {
/// A block of zeros, whose CRC is zero too.
std::string block(int number, int complement, int crc = 0)
{
    return std::string{0x01, static_cast<char>(number), static_cast<char>(complement)} +
           std::string(128, '\0') + std::string{static_cast<char>(crc >> 8), static_cast<char>(crc)};
}

std::string block(int number)
{
    return block(number, 255 - number);
}

const std::string kAck = "\x06";
const std::string kNak = "\x15";
const std::string kCancel = "\x18\x18";
const std::string kEnd = "\x04";

/// Each of ten bad blocks may be sent again; the eleventh ends the transfer.
std::vector<std::pair<std::string, std::string>> tooManyBadBlocks()
{
    std::vector<std::pair<std::string, std::string>> dialogue(11, {block(1, 1), kNak});
    dialogue.back().second = kCancel;
    return dialogue;
}

/// Short for a test, long for a machine that is busy with others.
constexpr Milliseconds kShortStall{300};

TEST(StrictReceiver, AnswersEachBlockByTheRules)
{
    using Dialogue = std::vector<std::pair<std::string, std::string>>;  // what is sent, and the answer
    const Milliseconds never{60000};
    const Fault corrupt{.kind = FaultKind::CorruptBlock};
    const Fault nonsense{.kind = FaultKind::XmodemAnswer, .bytes = {'?'}};
    constexpr int kAborted = -1;
    // clang-format off
    for (const auto& [name, dialogue, stored, fault, stall] :
         Rows<Dialogue, int, std::optional<Fault>, Milliseconds>{
             {"two blocks", {{block(1), kAck}, {block(2), kAck}, {kEnd, kAck}}, 256, {}, never},
             {"block again is kept once", {{block(1), kAck}, {block(1), kAck}, {kEnd, kAck}}, 128, {}, never},
             {"wrong complement", {{block(1, 1), kNak}, {block(1), kAck}, {kEnd, kAck}}, 128, {}, never},
             {"wrong crc", {{block(1, 254, 1), kNak}, {block(1), kAck}, {kEnd, kAck}}, 128, {}, never},
             {"block left out", {{block(1), kAck}, {block(3), kCancel}}, kAborted, {}, never},
             {"first block must be one", {{block(0), kCancel}}, kAborted, {}, never},
             {"cancelled by sender", {{block(1), kAck}, {"\x18\x18", kCancel}}, kAborted, {}, never},
             {"one cancel is not enough", {{"\x18" + block(1), kAck}, {kEnd, kAck}}, 128, {}, never},
             {"block broken off", {{block(1).substr(0, 60), kNak}, {block(1), kAck}, {kEnd, kAck}}, 128, {}, kShortStall},
             {"noise between blocks", {{"xyz", kNak}, {block(1), kAck}, {kEnd, kAck}}, 128, {}, kShortStall},
             {"too many bad blocks", tooManyBadBlocks(), kAborted, {}, never},
             {"corrupt on command", {{block(1), kNak}, {block(1), kAck}, {kEnd, kAck}}, 128, corrupt, never},
             {"any answer on command", {{block(1), "?"}, {block(1), kAck}, {kEnd, kAck}}, 128, nonsense, never}}) {
        // clang-format on
        SCOPED_TRACE(name);
        Chip chip({.checkLine = false, .xmodemPing = Milliseconds(60000), .xmodemStall = stall});
        chip.start();
        if (fault)
            chip.inject(*fault);
        HostLine host(chip.slavePath());
        host.send("1");
        host.readUntil("begin upload\r\nC");
        for (const auto& [sent, answer] : dialogue) {
            host.send(sent);
            ASSERT_EQ(host.read(answer.size()), answer);
        }
        EXPECT_EQ(host.readUntil("BL >").find("complete") != std::string::npos, stored != kAborted);
        EXPECT_EQ(chip.imageCount(), stored != kAborted ? 1U : 0U);
        EXPECT_EQ(std::ssize(chip.image()), std::max(stored, 0));
    }
}

TEST(Upload, ThatBrokeOffLeavesNoFirmwareWhereItErases)
{
    Chip chip({.checkLine = false, .uploadErases = true});
    chip.start();
    HostLine host(chip.slavePath());
    host.send("1");
    host.readUntil("begin upload\r\nC");
    host.send("\x18\x18");
    host.readUntil("BL > ");
    EXPECT_EQ(host.read(1, std::chrono::milliseconds(250)), "")
        << "the console purges what a sender still sends";
    host.send("2");
    EXPECT_NE(host.readUntil("BL >").find("No application"), std::string::npos);
    EXPECT_EQ(chip.mode(), Mode::Bootloader);
}
}  // namespace
