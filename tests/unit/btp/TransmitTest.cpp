#include "BtpFixture.h"
#include "GBSSlave.h"
#include "efr32sim/Fragments.h"

namespace {
class Transmit : public BtpFixture
{
protected:
    Transmit() { restartFrameNumbers(); }

    static int transmit(const Bytes& message)
    {
        return BTP_Transmit(message.data(), static_cast<unsigned>(message.size()));
    }
};

bool announcesTooMuch(unsigned length)
{
    const unsigned last = length % 1120;
    return length > 1120 && last >= 1 && last <= 69;
}

TEST_F(Transmit, CutsMessagesOfEveryLengthAsThePhonesKnowIt)
{
    efr32sim::FragmentEncoder encoder(efr32sim::kStationFrame);
    int odd = 0;
    for (unsigned length = 0; length <= kBtpMessageLength; ++length) {
        sent.clear();
        const Bytes message = counting(length, 1);
        ASSERT_EQ(transmit(message), 1);
        std::vector<Bytes> expected = encoder.encode(message);
        if (announcesTooMuch(length)) {
            ++odd;
            expected.back().resize((length + 1) % 256, 0);
        }
        ASSERT_EQ(sent, expected) << length;
    }
    EXPECT_EQ(odd, 207);
}

TEST_F(Transmit, PausesAfterEverySecondFragmentAcrossFrames)
{
    std::vector<std::size_t> sentAtPause;
    onDelay = [&] { sentAtPause.push_back(sent.size()); };
    ASSERT_EQ(transmit(counting(1120 + 138)), 1);  // 17 fragments, then 2
    EXPECT_EQ(delays, std::vector<unsigned>(9, 3));
    for (std::size_t i = 0; i < sentAtPause.size(); ++i)
        EXPECT_EQ(sentAtPause[i], 2 * (i + 1));
}

TEST_F(Transmit, TriesARefusedFragmentOnceMoreAndThenGivesTheMessageUp)
{
    using Numbers = std::vector<std::size_t>;
    for (const auto& [name, refused, result, notifications, pauses] :
         Rows<Numbers, int, std::size_t, std::vector<unsigned>>{
             {"first fragment refused once", {1}, 1, 4, {3}},
             {"every fragment refused once", {1, 3, 5}, 1, 6, {3}},
             {"first fragment refused twice", {1, 2}, 0, 2, {200}},
             {"last fragment refused twice", {3, 4}, 0, 4, {3, 200}},
         }) {
        SCOPED_TRACE(name);
        restartFrameNumbers();
        accept = [&numbers = refused] { return std::ranges::count(numbers, sent.size()) == 0; };
        EXPECT_EQ(transmit(counting(139)), result);
        EXPECT_EQ(sent.size(), notifications);
        EXPECT_EQ(delays, pauses);
        accept = nullptr;
        transmit(counting(1));
        EXPECT_EQ(sent.back()[0], 0x90) << "the frame number goes on after success and failure";
    }
}

TEST_F(Transmit, EndsWithTheLinkWithoutAPause)
{
    accept = [] {
        if (sent.size() == 3)
            GBSSlave_LetGoLine();
        return sent.size() < 3;
    };
    EXPECT_EQ(transmit(counting(1000)), 0);
    EXPECT_EQ(sent.size(), 3U) << "not even the second attempt";
    EXPECT_EQ(delays, std::vector<unsigned>{3});
}

TEST_F(Transmit, RefusesToWriteMoreThanFourFrames)
{
    EXPECT_EQ(BTP_IO_Write(counting(4481).data(), 4481), -2);
    EXPECT_TRUE(sent.empty());
}
}  // namespace
