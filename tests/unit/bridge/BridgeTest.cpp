// The bridge between a simulated phone and a stand-in of the CoAP application.

#include "Application.h"
#include "SimulatedStation.h"

#include <filesystem>

namespace {
using efr32sim::Bytes;
using efr32sim::CommandId;
using efr32sim::EventKind;
using efr32sim::Fault;
using efr32sim::FaultKind;
using efr32sim::Phone;
using testsupport::waitUntil;

constexpr CommandId kSetAdvertisingData{0x03, 0x0C};

std::string text(const std::optional<Bytes>& bytes)
{
    return bytes ? std::string(bytes->begin(), bytes->end()) : "nothing";
}

std::size_t entries(const char* directory)
{
    const std::filesystem::directory_iterator all(directory);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

class BridgeTest : public SimulatedStation
{
protected:
    /// One request of the phone and its answer, through everything.
    void expectRoundTrip(Phone& phone, const Application& application, const std::string& request,
                         const std::string& answer)
    {
        ASSERT_TRUE(phone.writeMessage(request));
        EXPECT_EQ(application.request(), request);
        ASSERT_TRUE(application.answer(answer));
        EXPECT_EQ(text(phone.waitMessage()), answer);
    }
};

TEST_F(BridgeTest, TheTwoPipesHaveDifferentByteOrders)
{
    ASSERT_TRUE(enter());
    const Application application;
    Phone phone(chip);
    ASSERT_TRUE(phone.connect());
    ASSERT_TRUE(phone.writeMessage("0123456789"));
    EXPECT_EQ(application.read(12), std::string("\n\0", 2) + "0123456789");
    ASSERT_TRUE(application.write(std::string("\xEE\xEE\0\5hello", 9)));
    const std::optional<Bytes> fragment = phone.waitNotification();
    ASSERT_TRUE(fragment);
    EXPECT_EQ(text(Bytes(fragment->begin() + 1, fragment->end())), std::string("\0\5hello", 7));
}

TEST_F(BridgeTest, WrongAnswersAreReportedAndTheNextOneArrives)
{
    ASSERT_TRUE(enter());
    const Application application;
    Phone phone(chip);
    ASSERT_TRUE(phone.connect());
    const std::string good("\0\0\0\4good", 8);
    const struct
    {
        const char* name;
        std::string bytes;
        const char* line;
        std::string next;
    } rows[] = {
        {"length 0", std::string(4, '\0'), "<ERROR> [Brisca] 0 is not a valid frame length", good},
        {"one too long", {"\0\0\x11\x7C", 4}, "<ERROR> [Brisca] 4476 is not a valid frame length", good},
        {"no payload", {"\0\0\0\5", 4}, "<DEBUG> [Brisca] Frame length is 5 but pipe is empty", good},
        {"half a header", good.substr(0, 2), "", good.substr(2)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(application.write(row.bytes));
        ASSERT_TRUE(waitUntil([&] { return capture.contains(row.line); }));
        ASSERT_TRUE(application.write(row.next));
        EXPECT_EQ(text(phone.waitMessage()), "good");
    }
}

TEST_F(BridgeTest, LongMessagesAreTracedAsTheirReadersKnowThem)
{
    ASSERT_TRUE(enter());
    const Application application;
    Phone phone(chip);
    ASSERT_TRUE(phone.connect());
    expectRoundTrip(phone, application, std::string(45, 'A'), std::string(3, 'B'));
    EXPECT_TRUE(waitUntil([&] { return capture.contains("CoAP -> BTP { 0x00, 0x03, 0x42, 0x42, 0x42 }"); }));
    std::string first = "BTP -> COAP { 0x41";
    for (int count = 1; count < 20; ++count)
        first += ", 0x41";
    EXPECT_EQ(capture.count(first + " }"), 1);
    EXPECT_EQ(capture.count("BTP -> COAP {  }"), 2);
    EXPECT_EQ(capture.count("<TRACE> [Brisca] BTP -> COAP Header = { 0x2D, 0x00 }"), 1);
    EXPECT_EQ(capture.count("<TRACE> [Brisca] GBS -> BTP data length = 46"), 1);
    EXPECT_EQ(capture.count("<DEBUG> [Brisca] Send 45 bytes to Coap"), 1);
    EXPECT_EQ(capture.count("<TRACE> [Brisca] COAP-> BTP Frame length 3"), 1);
}

TEST_F(BridgeTest, AFullPipeLosesRequestsAndNothingElse)
{
    ASSERT_TRUE(enter());
    const Application application;
    Phone phone(chip);
    ASSERT_TRUE(phone.connect());
    const std::string filling(65'536, 'f');  // the capacity of a pipe
    ASSERT_TRUE(application.fillRequests(filling));
    ASSERT_TRUE(phone.writeMessage("lost"));
    ASSERT_TRUE(waitUntil([&] { return capture.count("<DEBUG> [Brisca] Send -1 bytes to Coap") == 2; }));
    EXPECT_EQ(application.read(filling.size()), filling);
    expectRoundTrip(phone, application, "heard", "good");
}

TEST_F(BridgeTest, TenEntriesLeaveThreadsAndDescriptorsAsTheyWere)
{
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    for (int round = 0; round < 11; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(enter());
        const Application application;
        Phone phone(chip);
        ASSERT_TRUE(phone.connect());
        expectRoundTrip(phone, application, "request " + std::to_string(round), "answer");
        if (round == 1) {  // "GBS2App", which ends by itself, is gone
            threads = entries("/proc/self/task");
            descriptors = entries("/proc/self/fd");
        }
        if (round < 2)
            continue;
        EXPECT_EQ(entries("/proc/self/task"), threads);
        EXPECT_EQ(entries("/proc/self/fd"), descriptors);
    }
}

TEST_F(BridgeTest, ABootEventWaitsForTheStackToBeStarted)
{
    ASSERT_TRUE(enter());
    ASSERT_TRUE(Phone(chip).scan());
    GBSSlave_LetGoLine();
    ASSERT_TRUE(init());
    EXPECT_FALSE(stack().isStarted());
    auto events = chip.follow();
    chip.reboot();
    ASSERT_TRUE(events.waitFor(EventKind::BootSent));
    // The event pump looks every 10 ms.
    EXPECT_FALSE(Phone(chip).scan(std::chrono::milliseconds(300)));
    stack().startStack();
    EXPECT_TRUE(stack().isStarted());
    EXPECT_TRUE(Phone(chip).scan());
}

TEST_F(BridgeTest, AStationThatOneLostResponseSilencedIsBackOnTheAir)
{
    chip.inject(Fault{.kind = FaultKind::LostResponse, .skip = 1, .command = kSetAdvertisingData});
    ASSERT_TRUE(enter());
    ASSERT_TRUE(waitUntil([&] { return capture.contains("Failed to update manufacturer specific data"); }));
    EXPECT_FALSE(chip.air().advertising);
    EXPECT_TRUE(Phone(chip).scan());
    EXPECT_EQ(capture.count("<NOTIC> [Brisca] Neither advertising nor connected for 10 s"), 1);
}
}  // namespace
