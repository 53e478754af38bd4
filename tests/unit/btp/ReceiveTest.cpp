#include "BtpFixture.h"
#include "GBSSlave.h"

namespace {
using Receive = BtpFixture;

struct Write
{
    std::uint8_t header;
    unsigned payloadLength;
    unsigned firstByte = 0;
    int repeat = 1;
};
struct ReceiveRow
{
    const char* name;
    std::vector<Write> writes;
    Bytes complete;  // what can be read afterwards
    int signals = 1;
};

std::vector<Write> fragmentsOf1104Bytes()
{
    std::vector<Write> writes = {{0x8F, 69, 0}};
    for (unsigned number = 15; number-- > 0;)
        writes.push_back({static_cast<std::uint8_t>(number), 69, (15 - number) * 69});
    return writes;
}

TEST_F(Receive, PutsFragmentsTogether)
{
    const std::vector<ReceiveRow> rows = {
        {"one fragment is a frame", {{0x90, 10}}, counting(10)},
        {"the first fragment's bytes come first", {{0x81, 1, 9}, {0x00, 69}}, Bytes{9} + counting(69)},
        {"sixteen full fragments", fragmentsOf1104Bytes(), counting(1104)},
        {"fragments overtake the first one",
         {{0x00, 69}, {0x01, 69, 5}, {0x82, 1, 9}},
         Bytes{9} + counting(69, 5) + counting(69)},
        {"a repeated fragment counts once", {{0x81, 1}, {0x01, 1, 9}, {0x00, 69}}, Bytes{9} + counting(69)},
        {"a repeated fragment replaces a longer one",
         {{0x81, 10}, {0x00, 69}, {0x01, 3}, {0x01, 10, 4}},
         counting(10, 4) + counting(69),
         2},
        {"a lost fragment leaves the frame open", {{0x82, 1}, {0x00, 69}}, {}, 0},
        {"a new first fragment restarts an open frame",
         {{0x82, 1}, {0x01, 69}, {0x81, 2}, {0x00, 69, 7}},
         counting(2) + counting(69, 7)},
        {"a new frame replaces an unread one", {{0x80, 5}, {0xC0, 4, 9}}, counting(4, 9), 2},
        {"frames of two slots interleave",
         {{0x91, 1}, {0x82, 1, 7}, {0x10, 69}, {0x01, 69}},
         counting(1) + counting(69)},
        {"frame number 5 lies in slot 1", {{0xD1, 1}, {0x10, 69}}, counting(1) + counting(69)},
        {"a write of 71 bytes is dropped", {{0x80, 70}, {0x80, 3}}, counting(3)},
        {"a write of one byte is dropped", {{0x81, 0}, {0x00, 69}}, counting(69)},
        {"a length counts modulo 256", {{0x81, 2}, {0x00, 256 + 69, 9}}, counting(2) + counting(69, 9)},
        {"an oversize announcement empties its slot", {{0x80, 10}, {0x8F, 86}}, {}, 1},
        {"17 fragments do not fit", {{0x80, 16}, {0x0F, 69}}, {}, 1},
        {"an early fragment is remembered for 19 others",
         {{0x10, 69}, {0x20, 1, 0, 19}, {0x91, 1, 9}},
         Bytes{9} + counting(69)},
        {"and forgotten after 20", {{0x10, 69}, {0x20, 1, 0, 20}, {0x91, 1, 9}}, {}, 0},
    };
    for (const ReceiveRow& row : rows) {
        SCOPED_TRACE(row.name);
        BTP_Frame_Init();
        frameSignals = 0;
        for (const Write& write : row.writes)
            for (int i = 0; i < write.repeat; ++i)
                receive(write.header, counting(write.payloadLength, write.firstByte));
        EXPECT_EQ(frameSignals, row.signals);
        const unsigned available = BTP_RxBytesAvailable();
        EXPECT_GE(available, row.complete.size());
        if (!row.complete.empty())
            EXPECT_EQ(read(static_cast<unsigned>(row.complete.size())), row.complete);
        else
            EXPECT_EQ(available, 0U);
    }
}

TEST_F(Receive, RecordsAnEmptyWriteAsNoSlot)
{
    receive(0x10, counting(69));
    for (const std::uint8_t header : Bytes(20, 0x10))
        call_back_BTP_Receive(&header, 0);
    call_back_BTP_Receive(nullptr, 0);
    receive(0x91, {9});
    EXPECT_EQ(BTP_RxBytesAvailable(), 0U) << "the early fragment was forgotten";
}

TEST_F(Receive, ReadsALongFrameInParts)
{
    receive(0x81, {200});
    receive(0x00, counting(69));
    EXPECT_EQ(read(10), Bytes{200} + counting(9));
    EXPECT_EQ(BTP_RxBytesAvailable(), 60U);
    EXPECT_EQ(read(60), counting(60, 9));
    EXPECT_EQ(BTP_RxBytesAvailable(), 0U);
}

TEST_F(Receive, DropsAPartlyReadFrameWhenAnotherComesFirst)
{
    receive(0x90, counting(20));
    receive(0x80, counting(5, 100));
    ASSERT_EQ(read(4), counting(4));
    // The stamp of slot 0 was used up in passing: slot 1 goes first until it is replaced.
    receive(0x80, counting(5, 100));
    receive(0x90, counting(20));
    EXPECT_EQ(read(5), Bytes{}) << "continues no frame";
    EXPECT_EQ(read(5), counting(5, 100));
}

TEST_F(Receive, DropsAFrameThatNobodyCanRead)
{
    receive(0x81, {1});
    receive(0x02, counting(69));  // lengths match, but fragment 0 is missing
    ASSERT_EQ(BTP_RxBytesAvailable(), 70U);
    EXPECT_EQ(read(10), Bytes{});
    EXPECT_EQ(BTP_RxBytesAvailable(), 0U);
}

TEST_F(Receive, WaitsForWholeSeconds)
{
    EXPECT_EQ(read(1, 0), Bytes{});
    EXPECT_EQ(delays, std::vector<unsigned>{5});
    EXPECT_EQ(read(1, 3), Bytes{});
    EXPECT_EQ(nowSeconds(), 3U);
}

TEST_F(Receive, ForgetsWhatBelongsToALinkThatHasEnded)
{
    receive(0x00, counting(69));
    GBSSlave_LetGoLine();
    receive(0x81, {9});
    EXPECT_EQ(BTP_RxBytesAvailable(), 0U) << "of two phones";
    receive(0x00, counting(69));
    ASSERT_EQ(read(70), Bytes{9} + counting(69));

    // Of this frame only fragment 0 can be delivered; the reader waits for the rest until the link ends.
    const auto link = BTP_RxLink();
    receive(0xA2, {1});
    receive(0x23, counting(69));
    receive(0x20, counting(69));
    onDelay = [] {
        if (delays.size() == 10) {
            GBSSlave_LetGoLine();
            receive(0x90, counting(8));
        }
    };
    Bytes buffer(500);
    EXPECT_EQ(BTP_ReceiveOnLink(link, buffer.data(), 139, 10), 69U);
    EXPECT_EQ(nowSeconds(), 0U);
    EXPECT_EQ(BTP_ReceiveOnLink(link, buffer.data(), 8, 10), 0U) << "announced for the link before";
    EXPECT_EQ(read(8), counting(8));
}

TEST_F(Receive, FindsOfSeveralCompleteFramesThoseWhoseStampSurvivesTheSearch)
{
    using Slots = std::vector<unsigned>;
    for (const auto& [name, completed, found] : Rows<Slots, Slots>{
             {"frames 0 to 3: only the first", {0, 1, 2, 3}, {0}},
             {"frames 1 and 2: only the first", {1, 2}, {1}},
             {"frames 3 and 4 (slot 0)", {3, 0}, {3, 0}},
             {"frames 2 to 5: the first and slot 0", {2, 3, 0, 1}, {2, 0}},
             {"falling slots: all", {3, 2, 1, 0}, {3, 2, 1, 0}},
         }) {
        SCOPED_TRACE(name);
        BTP_Frame_Init();
        for (const unsigned slot : completed)
            receive(static_cast<std::uint8_t>(0x80 | slot << 4), Bytes(8, static_cast<std::uint8_t>(slot)));
        Bytes expected;
        for (const unsigned slot : found)
            expected = expected + Bytes(8, static_cast<std::uint8_t>(slot));
        // The reader asks for all and waits for what it does not find, here until the link drops.
        delays.clear();
        onDelay = [] {
            if (delays.size() == 1000)
                EraseBTPFrameBuffer();
        };
        EXPECT_EQ(read(BTP_RxBytesAvailable(), 1), expected);
    }
}
}  // namespace
