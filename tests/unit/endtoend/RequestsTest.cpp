// From the phone to the application, and whole exchanges.

#include "BTP_Core.h"
#include "GBSSlave.h"
#include "GOS.h"
#include "StationFixture.h"

#include <random>

namespace {
using endtoend::Bytes;
using endtoend::message;
using Requests = StationFixture;

Bytes fragment(unsigned header, std::size_t length, unsigned seed = 0)
{
    Bytes bytes = message(length, seed);
    bytes.insert(bytes.begin(), static_cast<std::uint8_t>(header));
    return bytes;
}

/// Four frames that are complete before the reader looks for the first time. Needs a process in which no
/// frame has been received yet, so it stands first.
TEST_F(Requests, OfABurstBeforeARestartDoNotReachTheNewApplication)
{
    static bool first = true;
    ASSERT_TRUE(std::exchange(first, false));
    ASSERT_TRUE(waitUntil([] { return GBSSlave_PeekState() == GBS_LINK_CONNECTED; }))
        << "the start of advertising, which takes the lock when it is repeated, is over by then";
    // The manager task looks at the link before it wakes the reader, and that takes the facade's lock.
    GOS_WaitForSemaphore(GBS_API_SEMAPHORE_ID);
    for (unsigned number = 0; number < 4; ++number)
        ASSERT_TRUE(phone.writeCommand(fragment(0x80 | number << 4, 8, number)));
    EXPECT_TRUE(waitUntil([] { return BTP_RxBytesAvailable() == 32; }));
    GOS_ReleaseSemaphore(GBS_API_SEMAPHORE_ID);
    // The reader has announced 32 bytes and delivers frame 0. Frames 1 to 3 have lost their stamps, so it
    // waits for the missing 24 bytes, which the next phone must not give.
    EXPECT_TRUE(waitUntil([] { return BTP_RxBytesAvailable() == 24; }));
    station().start();
    ASSERT_TRUE(phone.connect());
    expectService();
    EXPECT_EQ(BTP_RxBytesAvailable(), 0U);
}

TEST_F(Requests, ThatAreCutOffByTheEndOfTheLinkEndInZeroes)
{
    expectService();
    ASSERT_TRUE(phone.writeCommand(fragment(0x82, 1)));
    ASSERT_TRUE(phone.writeCommand(fragment(0x03, 69)));
    // Complete by its length, but fragment 1 is missing: the reader waits for all but fragment 0.
    EXPECT_EQ(phone.writeRequest(fragment(0x00, 69, 5)), 0);
    EXPECT_TRUE(waitUntil([] { return BTP_RxBytesAvailable() == 0; }));
    phone.disconnect();
    Bytes expected = message(69, 5);
    expected.resize(139, 0);
    EXPECT_EQ(application().waitRequest(), expected);
    ASSERT_TRUE(phone.connect());
    expectService();
}

TEST_F(Requests, AreAllAnsweredInOrderAndUnaltered)
{
    std::mt19937 random(1);
    std::uniform_int_distribution<std::size_t> size(1, 1104);
    const int requests = setting("BRISCA_ENDTOEND_REQUESTS", BRISCA_ENDTOEND_REQUESTS);
    for (int number = 0; number < requests; ++number) {
        const Bytes request = message(size(random), static_cast<unsigned>(number));
        ASSERT_TRUE(phone.writeMessage(request)) << number;
        const auto received = application().waitRequest();
        ASSERT_EQ(received, request) << number;
        const Bytes answer = number == 0 ? message(4475) : *received;  // the longest, once
        application().answer(answer);
        ASSERT_EQ(waitAnswer(), answer) << number;
    }
    EXPECT_EQ(BTP_RxBytesAvailable(), 0U);
}
}  // namespace
