// From the phone to the application, and whole exchanges.

#include "BTP_Core.h"
#include "GOS.h"
#include "StationFixture.h"
#include "StdoutCapture.h"
#include "Wait.h"
#include "facade/LogFacade.h"

#include <cstdlib>
#include <random>

namespace {
using endtoend::Bytes;
using endtoend::message;
using testsupport::waitUntil;
using Requests = StationFixture;

Bytes fragment(unsigned header, std::size_t length, unsigned seed = 0)
{
    Bytes bytes = message(length, seed);
    bytes.insert(bytes.begin(), static_cast<std::uint8_t>(header));
    return bytes;
}

/// Four frames that are complete before the reader looks for the first time. Needs a process in which no
/// frame has been received yet, so it stands first.
TEST_F(Requests, OfSeveralCompleteFramesOnlyTheFirstIsFound)
{
    static bool first = true;
    ASSERT_TRUE(std::exchange(first, false));
    // The manager task looks at the link before it wakes the reader, and that takes the facade's lock.
    GOS_WaitForSemaphore(GBS_API_SEMAPHORE_ID);
    for (unsigned number = 0; number < 4; ++number)
        ASSERT_TRUE(phone.writeCommand(fragment(0x80 | number << 4, 8, number)));
    EXPECT_TRUE(waitUntil([] { return BTP_RxBytesAvailable() == 32; }));
    GOS_ReleaseSemaphore(GBS_API_SEMAPHORE_ID);

    // The reader has announced 32 bytes and delivers frame 0. Frames 1 to 3 have lost their stamps, so it
    // waits for the missing 24 bytes, and takes them from frame 4.
    EXPECT_TRUE(waitUntil([] { return BTP_RxBytesAvailable() == 24; }));
    ASSERT_TRUE(phone.writeCommand(fragment(0xC0, 24, 4)));
    Bytes expected = message(8, 0);
    const Bytes found = message(24, 4);
    expected.insert(expected.end(), found.begin(), found.end());
    EXPECT_EQ(application().waitRequest(), expected);

    // The end of the link clears away what nobody found. The reader has announced it already and gives it up
    // 10 s after it began; only then is the next phone's request safe.
    EXPECT_EQ(BTP_RxBytesAvailable(), 24U);
    phone.disconnect();
    EXPECT_EQ(application().waitRequest(), Bytes(24, 0));
    ASSERT_TRUE(phone.connect());
    expectService();
}

TEST_F(Requests, OfAPhoneThatHasGoneDoNotReachTheNextOne)
{
    LogFacade::setLevel("[BTP_MANAGER_PROCESS]", LogLevel::Debug);
    const testsupport::StdoutCapture output;
    expectService();  // the manager task has seen the link
    ASSERT_TRUE(phone.writeCommand(fragment(0xB1, 1, 7)));
    ASSERT_TRUE(waitUntil([this] { return station().chip.link().connected; }));
    phone.disconnect();
    ASSERT_TRUE(waitUntil([&] { return output.contains("Link closed"); }));

    ASSERT_TRUE(phone.connect());
    ASSERT_TRUE(phone.writeCommand(fragment(0x30, 69)));
    expectService();
    EXPECT_EQ(BTP_RxBytesAvailable(), 0U);
}

unsigned requestCount()
{
    const char* text = std::getenv("BRISCA_ENDTOEND_REQUESTS");
    return text != nullptr ? static_cast<unsigned>(std::atoi(text)) : BRISCA_ENDTOEND_REQUESTS;
}

TEST_F(Requests, AreAllAnsweredInOrderAndUnaltered)
{
    std::mt19937 random(1);
    std::uniform_int_distribution<std::size_t> size(1, 1104);
    for (unsigned number = 0; number < requestCount(); ++number) {
        const Bytes request = message(size(random), number);
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
