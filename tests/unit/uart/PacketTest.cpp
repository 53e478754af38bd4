#include "gecko.h"

#include <gmock/gmock.h>

#include <atomic>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace {
using testing::ElementsAre;

/// A line in memory. A read of more than is there fails instead of waiting.
struct MemoryLine
{
    std::mutex mutex;
    std::string toHost;
    std::vector<std::string> toChip;
    bool broken = false;                                        // looking at the line fails
    std::string (*chip)(const std::string& command) = nullptr;  // what the chip sends for a command
} line;

std::int32_t output(std::uint32_t length, const std::uint8_t* bytes)
{
    const std::lock_guard lock(line.mutex);
    line.toChip.emplace_back(bytes, bytes + length);
    if (line.chip != nullptr)
        line.toHost += line.chip(line.toChip.back());
    return static_cast<std::int32_t>(length);
}

std::int32_t input(std::uint32_t length, std::uint8_t* buffer)
{
    const std::lock_guard lock(line.mutex);
    const bool enough = length <= line.toHost.size();
    const std::size_t count = enough ? length : line.toHost.size();
    std::copy_n(line.toHost.begin(), count, buffer);
    line.toHost.erase(0, count);
    return enough ? static_cast<std::int32_t>(length) : -1;
}

std::int32_t peek()
{
    const std::lock_guard lock(line.mutex);
    return line.broken ? -1 : static_cast<std::int32_t>(line.toHost.size());
}

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
        bglib_output = output;
        bglib_input = input;
        bglib_peek = peek;
        line.toHost.clear();
        line.toChip.clear();
        line.broken = false;
        line.chip = nullptr;
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
};

struct ReaderCase
{
    const char* name;
    std::string onLine;
    std::string asResponse;  // what one call hands back
    std::vector<std::string> asEvents;
    std::size_t left;  // bytes that the call leaves on the line
};

class Reader : public Packets, public testing::WithParamInterface<ReaderCase>
{
};

TEST_P(Reader, TakesOnePacketOrOneByteOfNoise)
{
    for (gecko_cmd_packet& slot : gecko_queue)
        slot.payload.fill(0xEE);
    line.toHost = GetParam().onLine;
    EXPECT_EQ(content(gecko_wait_message()), GetParam().asResponse);
    EXPECT_EQ(gecko_header(*gecko_rsp_msg) != 0, GetParam().asResponse != "none")
        << "a cut one is no response";
    EXPECT_EQ(queuedEvents(), GetParam().asEvents);
    EXPECT_EQ(line.toHost.size(), GetParam().left);
}

const std::string kLongest(kGeckoMaxPayload, 'L');
const std::string kOk("\0\0", 2);

INSTANTIATE_TEST_SUITE_P(
    Rows, Reader,
    testing::Values(
        ReaderCase{"ResponseIsHandedBack", response(kOk) + "x", response(kOk), {}, 1},
        ReaderCase{"EventIsQueued", event(1, "abc") + "x", "none", {event(1, "abc")}, 1},
        ReaderCase{"EventWithoutFieldsIsQueued", event(1), "none", {event(1)}, 0},
        ReaderCase{"LongestEventIsQueued", event(1, kLongest), "none", {event(1, kLongest)}, 0},
        ReaderCase{"LongestResponseIsHandedBack", response(kLongest), response(kLongest), {}, 0},
        ReaderCase{"ZeroByteIsNoise", std::string(1, '\0') + event(1), "none", {}, 4},
        ReaderCase{"OnesAreNoise", "\xFF" + event(1), "none", {}, 4},
        ReaderCase{"OtherTechnologyIsNoise", "\x28" + event(1), "none", {}, 4},
        ReaderCase{"OversizeIsDroppedAfterItsHeader", event(1, std::string(257, 'x')), "none", {}, 257},
        ReaderCase{"FalseHeaderInNoiseIsTaken", "\xA0\x02" + event(1), "none", {"\xA0\x02" + event(1)}, 0},
        ReaderCase{"NothingOnTheLineIsAFailure", "", "none", {}, 0},
        ReaderCase{"CutHeaderIsAFailure", event(1).substr(0, 3), "none", {}, 0},
        ReaderCase{"CutResponseIsNotASuccess", response(kLongest).substr(0, 5), "none", {}, 0},
        ReaderCase{"CutEventStaysWithZeros",
                   event(1, "abcd").substr(0, 6),
                   "none",
                   {event(1, std::string(4, '\0'))},
                   0}),
    [](const auto& row) { return row.param.name; });

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
    static std::uint8_t events;
    events = 0;
    // The chip answers with the command's own argument, behind an event that counts.
    line.chip = [](const std::string& command) {
        return event(events++) + packet(0x20, 0x03, command[3], command.substr(4));
    };
    const auto commander = [](std::uint8_t id) {
        for (int i = 0; i < kCommands; ++i) {
            const gecko_exchange_lock lock;
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
            const gecko_exchange_lock lock;
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
