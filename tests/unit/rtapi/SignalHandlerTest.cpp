#include "FakeSystem.h"
#include "signalHandler/SignalHandler.h"

namespace {
/// A moment of a second at which a timed wait of up to 999 ms can be expressed, as every one of these starts.
constexpr long kStartOfSecond = 0;
constexpr long kEndOfSecond = 999'999'999;

std::string stateOf(SignalHandler& handler)
{
    LogFacade::setLevel("[RTapi][SIGNAL]", LogLevel::Trace);
    StdoutCapture capture;
    handler.PrintSignalState();
    LogFacade::setLevel("[RTapi][SIGNAL]", LogLevel::Notic);
    return capture.logLines().at(0);
}

using SignalHandlerTest = RuntimeTest;

TEST_F(SignalHandlerTest, ReturnsAndClearsTheWholePendingSet)
{
    for (const auto& [name, sent, mask, timeoutMs, received] :
         Rows<std::vector<std::uint32_t>, std::uint32_t, int, std::uint32_t>{
             {"the bit waited for", {0x2}, 0x2, 0, 0x2},
             {"bits outside the mask with it", {0x3}, 0x2, 0, 0x3},
             {"a wake-up outside the mask waits on", {0x1, 0x4}, 0x4, 0, 0x5},
             {"any bit of the mask", {0x80000000}, 0x80000001, 0, 0x80000000},
             {"the same bit twice", {0x8, 0x8}, 0x8, 0, 0x8},
             {"a bit in time", {0x8}, 0xC, 500, 0x8},
             {"a time-out", {}, 0x2, 100, 0},
             {"a time-out clears bits outside the mask", {0x1}, 0x2, 100, 0},
         }) {
        SCOPED_TRACE(name);
        SignalHandler handler("rows");
        const fakesystem::NanosecondsAre now(kStartOfSecond);
        for (const std::uint32_t bits : sent)
            handler.SendSignal(bits);
        EXPECT_EQ(handler.WaitForSignal(mask, timeoutMs), received);
        EXPECT_EQ(stateOf(handler), "<TRACE> [[RTapi][SIGNAL]] rows      : 0");
    }
}

TEST_F(SignalHandlerTest, AddsTheTimeoutWithoutCarryAndIsNotEndedByADeadlineThatCannotBeExpressed)
{
    timespec before = {};
    clock_gettime(CLOCK_REALTIME, &before);
    SignalHandler handler("deadline");
    auto waiting = std::async(std::launch::async, [&] {
        const fakesystem::NanosecondsAre now(kEndOfSecond);
        EXPECT_EQ(handler.WaitForSignal(0x1, 5999), 0x1u);
        EXPECT_GE(fakesystem::deadline.tv_sec, before.tv_sec + 5);
        EXPECT_EQ(fakesystem::deadline.tv_nsec, 1'998'999'999);
    });
    EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
    handler.SendSignal(0x1);
}

TEST_F(SignalHandlerTest, LosesNoBitOfManySenders)
{
    SignalHandler handler("many");
    std::vector<std::future<void>> senders;
    for (unsigned sender = 0; sender < 4; ++sender) {
        senders.push_back(std::async(std::launch::async, [&handler, sender] {
            for (unsigned bit = 0; bit < 8; ++bit)
                handler.SendSignal(1u << (sender * 8 + bit));
        }));
    }
    std::uint32_t received = 0;
    while (received != 0xFFFFFFFF)
        received |= handler.WaitForSignal(~received, 0);
    for (auto& sender : senders)
        sender.get();
}
}  // namespace
