#include "Testing.h"
#include "crc16.h"
#include "facade/LogFacade.h"
#include "xymodem.h"

namespace {
using testsupport::content;

constexpr char kAck = '\x06';
constexpr char kNak = '\x15';
constexpr char kEnded = '.';
constexpr std::size_t kPacketLength = 133;

/// The packet that carries block @p index (from 0) of an image.
std::string packetOf(const std::string& image, std::size_t index)
{
    std::string data = image.substr(index * 128, 128);
    data.resize(128, '\xFF');
    const auto number = static_cast<char>(index + 1);
    const unsigned short crc = crc16(reinterpret_cast<const unsigned char*>(data.data()), 128);
    return "\x01"s + number + static_cast<char>(~number) + data + static_cast<char>(crc >> 8) +
           static_cast<char>(crc);
}

TEST(Crc16, GivesThePublishedCheckValue)
{
    EXPECT_EQ(crc16(reinterpret_cast<const unsigned char*>("123456789"), 9), 0x31C3);
    EXPECT_EQ(crc16(nullptr, 0), 0);
}

class XmodemSender : public testing::Test
{
protected:
    XmodemSender() { LogFacade::setLevel("BriscaService.comm.xmodem", LogLevel::Debug); }

    void start(const std::string& path, bool waitForReceiver = true)
    {
        sender = std::async(std::launch::async, [this, path, waitForReceiver] {
            const int result = xymodem_send(line.slave(), path.c_str(), waitForReceiver);
            (void)!::write(line.slave(), &kEnded, 1);  // the same way, behind all that was sent
            return result;
        });
    }
    /// The next packet or single byte of the sender; empty when it has ended.
    [[nodiscard]] std::string receive()
    {
        const std::string byte = line.read(1);
        return byte == "\x01" ? byte + line.read(kPacketLength - 1) : byte[0] == kEnded ? "" : byte;
    }
    /// Answers each packet with the next byte of @p answers, and with ACK when they are used up.
    [[nodiscard]] std::vector<std::string> play(const std::string& opening, const std::string& answers)
    {
        line.write(opening);
        std::vector<std::string> received;
        for (std::string got = receive(); !got.empty(); got = receive()) {
            if (got.size() == kPacketLength)
                line.write({received.size() < answers.size() ? &answers[received.size()] : &kAck, 1});
            received.push_back(got);
        }
        return received;
    }

    TempDir directory;
    Pty line;
    std::future<int> sender;
};

const std::string kMenu = "\r\nbegin upload\r\n"s + '\0' + kAck + kNak + "\x18 B"s;
const std::string k55 = std::string(55, '!');

TEST_F(XmodemSender, SendsEachBlockAsOftenAsItIsAskedFor)
{
    using Times = std::vector<std::size_t>;  // how often each block is sent
    for (const auto& [name, size, opening, answers, result, times] :
         Rows<std::size_t, std::string, std::string, int, Times>{
             {"an empty file is only ended", 0, "C", "", 0, {}},
             {"one byte is filled up", 1, "C", "", 0, {1}},
             {"a full block has no filling", 128, "C", "", 0, {1}},
             {"what comes before the first C is skipped", 1, kMenu + "C", "", 0, {1}},
             {"a NAK repeats the block", 129, "C", {kNak, kNak, kAck, kNak}, 0, {3, 2}},
             {"NAKs are not counted", 1, "C", std::string(300, kNak), 0, {301}},
             {"a cancel is an unexpected byte", 1, "C", "\x18\x18", 0, {3}},
             {"zero bytes are not counted", 1, "C", std::string(60, '\0'), 0, {61}},
             {"55 unexpected bytes are borne", 1, "C", k55, 0, {56}},
             {"56 unexpected bytes end it", 129, "C", k55 + "!", -1, {56}},
             {"a zero byte does not forget them", 1, "C", k55 + '\0' + "!", -1, {57}},
             {"a NAK forgets them", 1, "C", k55 + kNak + k55, 0, {112}},
             {"an ACK forgets them", 129, "C", k55 + kAck + k55, 0, {56, 56}},
             {"block numbers wrap", 257 * 128, "C", "", 0, Times(257, 1)},
         }) {
        SCOPED_TRACE(name);
        const std::string image = content(size);
        start(directory.write("image", image));
        const auto received = play(opening, answers);
        std::vector<std::string> expected;
        for (std::size_t block = 0; block < times.size(); ++block)
            expected.insert(expected.end(), times[block], packetOf(image, block));
        if (result == 0)
            expected.emplace_back("\x04");
        EXPECT_EQ(received, expected);
        EXPECT_EQ(sender.get(), result);
    }
}

TEST_F(XmodemSender, AHungUpLineIsAnInputOutputError)
{
    const std::string path = directory.write("image", content(1000));
    EXPECT_EQ(xymodem_send(-1, path.c_str(), false), -EBADF);
    EXPECT_EQ(xymodem_send(line.slave(), directory.path().c_str(), true), -EINVAL);
    for (const bool beforeTheStart : {true, false}) {
        SCOPED_TRACE(beforeTheStart ? "before the 'C'" : "after two blocks");
        line = Pty();
        const StdoutCapture log;
        start(path);
        if (!beforeTheStart) {
            line.write("C");
            EXPECT_EQ(receive().size(), kPacketLength);
            line.write({&kAck, 1});
            EXPECT_EQ(receive().size(), kPacketLength);
        }
        line.hangUp();
        EXPECT_EQ(sender.get(), -EIO);
        EXPECT_EQ(log.count("<ERROR> [BriscaService.comm.xmodem] Reading error during waiting 'C' character"),
                  beforeTheStart ? 1 : 0);
    }
}

TEST_F(XmodemSender, AFileThatShrinksEndsTheTransfer)
{
    // To nothing, within the page that is being sent, and within a later one.
    for (const off_t newSize : {0, 200, 5000}) {
        SCOPED_TRACE(newSize);
        const std::string image = content(20000);
        const std::string path = directory.write("image", image);
        start(path);
        line.write("C");
        EXPECT_EQ(receive(), packetOf(image, 0));
        ASSERT_EQ(::truncate(path.c_str(), newSize), 0);
        const auto rest = play({&kAck, 1}, "");
        const auto wholeBlocks = static_cast<std::size_t>(newSize / 128);
        EXPECT_EQ(rest.size(), wholeBlocks > 0 ? wholeBlocks - 1 : 0) << "a block was sent that is not there";
        EXPECT_EQ(sender.get(), -ENODATA);
    }
}
}  // namespace
