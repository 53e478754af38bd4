#include "gecko.h"

#include "GOS.h"
#include "LineOwner.h"

#include <algorithm>
#include <chrono>
#include <span>
#include <thread>
#include <utility>

namespace {
constexpr std::uint8_t kTechnologyMask = 0x78;
constexpr std::uint8_t kBluetooth = 0x20;
constexpr std::uint8_t kTypeMask = 0xF8;  // message type and technology
constexpr std::uint8_t kEvent = 0xA0;
constexpr std::uint32_t kResponseDelayMs = 10;
constexpr int kResponseTries = 100;
constexpr std::chrono::milliseconds kByteGap{100};     // a packet that rests for longer is cut
constexpr std::chrono::microseconds kLookPeriod{200};  // about two bytes at 115200 baud

gecko_cmd_packet command;
gecko_cmd_packet response;

// What came of reading one packet.
enum class Outcome { Response, Event, Dropped, LineFailed };

bool readBytes(std::span<std::uint8_t> buffer)
{
    const bglib_input_function input = bglib_input;
    return input != nullptr && input(static_cast<std::uint32_t>(buffer.size()), buffer.data()) >= 0;
}

// Bytes waiting; a line that cannot be looked at may have some.
std::int32_t peek()
{
    const bglib_peek_function look = bglib_peek;
    return look == nullptr ? 1 : look();
}

/// Waits for the rest of a packet while bytes keep coming. The time is taken before each look, so that a
/// machine that stands still between the two does not cut a packet.
/// @param there bytes that are known to be there
/// @return how much of @p length is there: less when kByteGap has passed without a byte or the line fails
std::size_t awaitRest(std::size_t length, std::int32_t there)
{
    using Clock = std::chrono::steady_clock;
    const auto wanted = static_cast<std::int32_t>(length);
    Clock::time_point limit = {};
    if (there < wanted)
        there = peek();
    while (there >= 0 && there < wanted) {
        std::this_thread::sleep_for(kLookPeriod);
        const Clock::time_point now = Clock::now();
        const std::int32_t before = std::exchange(there, peek());
        if (there != before || limit == Clock::time_point{})
            limit = now + kByteGap;
        else if (now >= limit)
            break;
    }
    return static_cast<std::size_t>(std::clamp(there, 0, wanted));
}

/// Reads the rest of a packet. What has come of one that was cut is taken off the line, too, or it would be
/// searched for packets. On a line that cannot be looked at the rest is waited for without limit.
/// @param seen how many bytes the last look at the line found and nobody has read since
bool readRest(std::span<std::uint8_t> rest, std::int32_t& seen)
{
    const std::size_t there = bglib_peek == nullptr ? rest.size() : awaitRest(rest.size(), seen);
    seen -= static_cast<std::int32_t>(there);
    return (there == 0 || readBytes(rest.first(there))) && there == rest.size();
}

std::uint32_t nextSlot(std::uint32_t slot)
{
    return (slot + 1) % kGeckoQueueLength;
}

bool ringIsEmpty()
{
    return gecko_queue_r == gecko_queue_w;
}

bool ringIsFull()
{
    return nextSlot(gecko_queue_w) == gecko_queue_r;
}

bool readPayload(gecko_cmd_packet& packet, std::size_t length, std::int32_t seen)
{
    return length == 0 || readRest(std::span(packet.payload).first(length), seen);
}

Outcome dropPayload(std::size_t length, std::int32_t seen)
{
    gecko_cmd_packet scratch;
    return readPayload(scratch, length, seen) ? Outcome::Dropped : Outcome::LineFailed;
}

Outcome readEvent(const gecko_cmd_packet& header, std::int32_t seen)
{
    const std::size_t length = gecko_payload_length(header);
    if (ringIsFull())
        return dropPayload(length, seen);
    gecko_cmd_packet& slot = gecko_queue[gecko_queue_w];
    gecko_queue_w = nextSlot(gecko_queue_w);
    slot.header = header.header;
    if (readPayload(slot, length, seen))
        return Outcome::Event;
    // The slot stays taken; zeros are better than what an older event left in it.
    slot.payload = {};
    return Outcome::LineFailed;
}

Outcome readResponse(const gecko_cmd_packet& header, std::int32_t seen)
{
    response.header = header.header;
    if (readPayload(response, gecko_payload_length(header), seen))
        return Outcome::Response;
    // Cut short it would pass for a success: its header matches and its result is still zero.
    response = {};
    return Outcome::LineFailed;
}

/// @param seen how many bytes the caller's look at the line found, 0 without one
Outcome readPacket(std::int32_t seen)
{
    gecko_cmd_packet packet;
    const std::span header(packet.header);
    if (!readBytes(header.first(1)))
        return Outcome::LineFailed;
    if ((header[0] & kTechnologyMask) != kBluetooth)
        return Outcome::Dropped;
    --seen;
    if (!readRest(header.subspan(1), seen))
        return Outcome::LineFailed;
    if (gecko_payload_length(packet) > kGeckoMaxPayload)
        return Outcome::Dropped;
    return (header[0] & kTypeMask) == kEvent ? readEvent(packet, seen) : readResponse(packet, seen);
}

void sendCommand()
{
    const std::size_t length = std::min(gecko_payload_length(command), kGeckoMaxPayload);
    std::array<std::uint8_t, sizeof(gecko_cmd_packet)> bytes;
    // One packet, one write.
    std::copy_n(command.payload.begin(), length,
                std::copy(command.header.begin(), command.header.end(), bytes.begin()));
    if (const bglib_output_function output = bglib_output)
        output(static_cast<std::uint32_t>(kGeckoHeaderSize + length), bytes.data());
}

/// Drops responses that came too late for their own commands; events go into the ring. The next command would
/// take such a response for its own and leave its own to the command after it, and where no event is read
/// meanwhile, as in a retry on the event task, every further command would fail.
void discardLateResponses()
{
    if (bglib_peek == nullptr)
        return;  // a read might wait for ever, and the command would never be sent
    for (int i = 0; i < kResponseTries; ++i) {
        const std::int32_t seen = peek();
        if (seen <= 0)
            return;
        const Outcome outcome = readPacket(seen);
        if (outcome == Outcome::Response)
            response = {};
        if (outcome == Outcome::LineFailed)
            return;
    }
}

gecko_cmd_packet* getEventInTurn(int block)
{
    const LineOwner::ExchangeTurn turn;
    return LineOwner::isLetGo() ? nullptr : gecko_get_event(block);
}
}  // namespace

gecko_cmd_packet* const gecko_cmd_msg = &command;
gecko_cmd_packet* const gecko_rsp_msg = &response;

std::array<gecko_cmd_packet, kGeckoQueueLength> gecko_queue;
std::atomic<std::uint32_t> gecko_queue_r{0};
std::atomic<std::uint32_t> gecko_queue_w{0};

std::atomic<bglib_output_function> bglib_output{nullptr};
std::atomic<bglib_input_function> bglib_input{nullptr};
std::atomic<bglib_peek_function> bglib_peek{nullptr};

void gecko_handle_command(std::uint32_t, void*)
{
    const LineOwner::ExchangeTurn turn;
    if (LineOwner::isLetGo()) {
        response = {};
        return;
    }
    discardLateResponses();
    sendCommand();
    GOS_WaitForDelay(kResponseDelayMs);
    gecko_wait_response();
}

void gecko_handle_command_noresponse(std::uint32_t, void*)
{
    const LineOwner::ExchangeTurn turn;
    if (!LineOwner::isLetGo())
        sendCommand();
}

gecko_cmd_packet* gecko_wait_event()
{
    return getEventInTurn(1);
}

gecko_cmd_packet* gecko_peek_event()
{
    return getEventInTurn(0);
}

bool gecko_event_queued(std::uint32_t id)
{
    const LineOwner::ExchangeTurn turn;
    for (std::uint32_t slot = gecko_queue_r; slot != gecko_queue_w; slot = nextSlot(slot)) {
        if (gecko_event_id(gecko_queue[slot]) == id)
            return true;
    }
    return false;
}

int gecko_event_pending()
{
    const bglib_peek_function look = bglib_peek;
    return !ringIsEmpty() || (look != nullptr && look() != 0) ? 1 : 0;
}

gecko_cmd_packet* gecko_wait_message()
{
    return readPacket(0) == Outcome::Response ? gecko_rsp_msg : nullptr;
}

gecko_cmd_packet* gecko_wait_response()
{
    for (int i = 0; i < kResponseTries; ++i) {
        const std::int32_t seen = peek();
        if (seen > 0 && readPacket(seen) == Outcome::Response)
            return gecko_rsp_msg;
    }
    return nullptr;
}

gecko_cmd_packet* gecko_get_event(int block)
{
    while (ringIsEmpty()) {
        const std::int32_t seen = block == 0 ? peek() : 0;
        if (block == 0 && seen <= 0)
            return nullptr;
        const Outcome outcome = readPacket(seen);
        if (outcome == Outcome::Response)
            return gecko_rsp_msg;
        // An event that was cut is handed out, but not when the line was taken away behind its header.
        if (outcome == Outcome::LineFailed && (ringIsEmpty() || peek() < 0))
            return nullptr;
    }
    gecko_cmd_packet& event = gecko_queue[gecko_queue_r];
    gecko_queue_r = nextSlot(gecko_queue_r);
    return &event;
}

void gecko_discard_events()
{
    gecko_queue_r = gecko_queue_w.load();
}
