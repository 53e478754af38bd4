#include "LineOwner.h"
#include "MemoryLine.h"
#include "Testing.h"

namespace {
std::string packet(std::uint8_t type, std::uint8_t classId, std::uint8_t id, const std::string& payload = {})
{
    const std::uint8_t header[] = {static_cast<std::uint8_t>(type | (payload.size() >> 8)),
                                   static_cast<std::uint8_t>(payload.size()), classId, id};
    return std::string(std::begin(header), std::end(header)) + payload;
}

std::string event(std::uint8_t id, const std::string& payload = {})
{
    return packet(0xA0, 0x08, id, payload);
}

std::string response(const std::string& payload)
{
    return packet(0x20, 0x03, 0x14, payload);
}

std::string content(const gecko_cmd_packet* packet)
{
    if (packet == nullptr)
        return "none";
    return std::string(packet->header.begin(), packet->header.end()) +
           std::string(packet->payload.begin(),
                       packet->payload.begin() + static_cast<std::ptrdiff_t>(std::min(
                                                     gecko_payload_length(*packet), kGeckoMaxPayload)));
}

class Packets : public testing::Test
{
protected:
    Packets()
    {
        gecko_discard_events();
        *gecko_rsp_msg = {};
        gecko_set_header(*gecko_cmd_msg, 0x03, 0x14, 3);
        gecko_cmd_msg->payload = {0, 2, 2};
    }
    static std::vector<std::string> queuedEvents()
    {
        std::vector<std::string> result;
        while (gecko_queue_r != gecko_queue_w)
            result.push_back(content(gecko_get_event(0)));
        return result;
    }

    MemoryLine line;
};

const std::string kLongest(kGeckoMaxPayload, 'L');
const std::string kOk("\0\0", 2);

TEST_F(Packets, AreTakenOneByOneAndNoiseByteByByte)
{
    for (const auto& [name, onLine, asResponse, asEvents, left] :
         Rows<std::string, std::string, std::vector<std::string>, std::size_t>{
             {"a response is handed back", response(kOk) + "x", response(kOk), {}, 1},
             {"an event is queued", event(1, "abc") + "x", "none", {event(1, "abc")}, 1},
             {"an event without fields is queued", event(1), "none", {event(1)}, 0},
             {"the longest event is queued", event(1, kLongest), "none", {event(1, kLongest)}, 0},
             {"the longest response is handed back", response(kLongest), response(kLongest), {}, 0},
             {"a zero byte is noise", std::string(1, '\0') + event(1), "none", {}, 4},
             {"ones are noise", "\xFF" + event(1), "none", {}, 4},
             {"another technology is noise", "\x28" + event(1), "none", {}, 4},
             {"oversize is dropped after its header", event(1, std::string(257, 'x')), "none", {}, 257},
             {"a false header in noise is taken", "\xA0\x02" + event(1), "none", {"\xA0\x02" + event(1)}, 0},
             {"nothing on the line is a failure", "", "none", {}, 0},
             {"a cut header is a failure", event(1).substr(0, 3), "none", {}, 0},
             {"a cut response is not a success", response(kLongest).substr(0, 5), "none", {}, 0},
             {"a cut event stays, with zeros",
              event(1, "abcd").substr(0, 6),
              "none",
              {event(1, {0, 0, 0, 0})},
              0},
         }) {
        SCOPED_TRACE(name);
        *gecko_rsp_msg = {};
        for (gecko_cmd_packet& slot : gecko_queue)
            slot.payload.fill(0xEE);
        line.toHost = onLine;
        EXPECT_EQ(content(gecko_wait_message()), asResponse);
        EXPECT_EQ(gecko_header(*gecko_rsp_msg) != 0, asResponse != "none") << "a cut one is no response";
        EXPECT_EQ(queuedEvents(), asEvents);
        EXPECT_EQ(line.toHost.size(), left);
    }
}

TEST_F(Packets, AFullRingKeeps29EventsInOrderAndDropsTheNext)
{
    std::vector<std::string> kept;
    for (std::uint8_t i = 0; i < 31; ++i) {
        line.toHost += event(i, {static_cast<char>(i)});
        if (i < 29)
            kept.push_back(event(i, {static_cast<char>(i)}));
    }
    line.toHost += response(kOk);
    for (int i = 0; i < 31; ++i)
        EXPECT_EQ(gecko_wait_message(), nullptr);
    EXPECT_EQ(content(gecko_wait_message()), response(kOk)) << "a dropped event is read off the line whole";
    EXPECT_EQ(queuedEvents(), kept);
}

TEST_F(Packets, ACommandIsOneWriteAndTakesItsResponseFromBehindEventsAndNoise)
{
    line.chip = [](const std::string&) { return event(1) + "\xFF" + event(2) + response(kOk) + event(3); };
    gecko_handle_command(0, nullptr);
    EXPECT_THAT(line.toChip, ElementsAre(packet(0x20, 0x03, 0x14, std::string("\0\2\2", 3))));
    EXPECT_EQ(content(gecko_rsp_msg), response(kOk));
    EXPECT_EQ(content(gecko_peek_event()), event(1));
    EXPECT_EQ(content(gecko_peek_event()), event(2));
    EXPECT_EQ(content(gecko_peek_event()), event(3));
    EXPECT_EQ(gecko_peek_event(), nullptr);
}

TEST_F(Packets, ALateResponseGoesToTheEventReader)
{
    gecko_handle_command(0, nullptr);
    EXPECT_EQ(gecko_header(*gecko_rsp_msg), 0U);
    line.toHost = response(kOk);
    gecko_handle_command_noresponse(0, nullptr);  // reads nothing
    EXPECT_EQ(line.toChip.size(), 2U);
    EXPECT_EQ(gecko_peek_event(), gecko_rsp_msg);
    EXPECT_EQ(content(gecko_rsp_msg), response(kOk));
}

TEST_F(Packets, AResponseIsLookedForAHundredTimes)
{
    line.toHost = std::string(99, '\xFF') + response(kOk);
    EXPECT_EQ(content(gecko_wait_response()), response(kOk));
    line.toHost = std::string(100, '\xFF') + response(kOk);
    EXPECT_EQ(gecko_wait_response(), nullptr);
    EXPECT_EQ(line.toHost, response(kOk));
}

TEST_F(Packets, AnEventIsFoundBehindNoiseAndAFailingLineEndsTheSearch)
{
    line.toHost = "\xFF\x01" + event(7);
    EXPECT_EQ(content(gecko_peek_event()), event(7));
    line.broken = true;
    EXPECT_EQ(gecko_peek_event(), nullptr);
    line.broken = false;
    line.toHost = event(7).substr(0, 2);
    EXPECT_EQ(gecko_peek_event(), nullptr) << "a read fails";
    EXPECT_EQ(gecko_wait_event(), nullptr) << "a read fails";
    bglib_input = nullptr;
    bglib_peek = nullptr;
    EXPECT_EQ(gecko_peek_event(), nullptr) << "no line";
}

TEST_F(Packets, ThatStopAreGivenUpAndThoseThatKeepComingAreNot)
{
    const std::string whole = event(1, "abcdefgh");
    const auto drip = [&](std::size_t from) {
        for (std::size_t i = from; i < whole.size(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            const std::lock_guard lock(line.mutex);
            line.toHost += whole[i];
        }
    };
    const auto begin = std::chrono::steady_clock::now();
    line.toHost = whole.substr(0, 6);
    EXPECT_EQ(content(gecko_peek_event()), event(1, std::string(8, '\0')));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(100));
    EXPECT_EQ(line.toHost, "");

    const auto dripped = [&] {
        line.toHost = whole.substr(0, 1);
        std::thread chip(drip, 1);
        gecko_wait_message();
        chip.join();
        return queuedEvents();
    };
    // A busy machine may hold the chip's bytes back for too long.
    EXPECT_TRUE(waitUntil([&] { return dripped() == std::vector{whole}; }));
}

TEST_F(Packets, ACommandIsSentWithoutALookAtTheLine)
{
    bglib_peek = nullptr;
    line.chip = [](const std::string&) { return response(kOk); };
    gecko_handle_command(0, nullptr);
    EXPECT_EQ(content(gecko_rsp_msg), response(kOk));
}

TEST_F(Packets, PendingMeansQueuedOrWaitingOrNotKnown)
{
    EXPECT_EQ(gecko_event_pending(), 0);
    line.toHost = event(1);
    EXPECT_EQ(gecko_event_pending(), 1);
    EXPECT_EQ(gecko_wait_message(), nullptr);
    EXPECT_EQ(gecko_event_pending(), 1);
    EXPECT_EQ(queuedEvents().size(), 1U);
    line.broken = true;
    EXPECT_EQ(gecko_event_pending(), 1);
    bglib_peek = nullptr;
    EXPECT_EQ(gecko_event_pending(), 0);
}

TEST_F(Packets, TwoCommandersAndThePumpEachGetTheirOwn)
{
    constexpr int kCommands = 50;  // each brings an event: far more than the ring holds
    // The chip answers with the command's own argument, behind an event that counts.
    line.chip = [events = std::uint8_t{0}](const std::string& command) mutable {
        return event(events++) + packet(0x20, 0x03, command[3], command.substr(4));
    };
    const auto commander = [](std::uint8_t id) {
        for (int i = 0; i < kCommands; ++i) {
            const LineOwner::ExchangeTurn turn;
            *gecko_rsp_msg = {};
            gecko_set_header(*gecko_cmd_msg, 0x03, id, 1);
            gecko_cmd_msg->payload[0] = static_cast<std::uint8_t>(i);
            gecko_handle_command(0, nullptr);
            EXPECT_EQ(gecko_response_id(*gecko_rsp_msg), gecko_response_id(0x03, id));
            EXPECT_EQ(gecko_rsp_msg->payload[0], i);
        }
    };
    std::vector<int> seen;
    std::atomic<bool> stop{false};
    std::thread pump([&] {
        for (bool last = false; !last;) {
            last = stop;
            const LineOwner::ExchangeTurn turn;
            while (const gecko_cmd_packet* const found = gecko_peek_event())
                seen.push_back(found->header[3]);
        }
    });
    std::thread first(commander, 0x01);
    std::thread second(commander, 0x02);
    first.join();
    second.join();
    stop = true;
    pump.join();
    std::vector<int> inOrder(2 * kCommands);
    std::iota(inOrder.begin(), inOrder.end(), 0);
    EXPECT_EQ(seen, inOrder);
}
}  // namespace
