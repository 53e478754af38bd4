#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

// The BGAPI host core: frames packets on the line to the co-processor, waits for responses, queues events.
//
// A packet on the wire, multi-byte fields little-endian:
//
//   offset size
//   0      1     bit 7: 0 command or response, 1 event; bits 6..3: technology, 4 = Bluetooth;
//                bits 2..0: payload length, bits 10..8
//   1      1     payload length, bits 7..0
//   2      1     class
//   3      1     message (command or event) within the class
//   4      n     payload, at most 256 bytes. A response begins with its 16-bit result, 0 = success; a byte
//                array is its count (one byte) followed by the bytes
//
// The host has one command buffer and one response buffer. A caller takes its turn (LineOwner.h), clears
// *gecko_rsp_msg, fills *gecko_cmd_msg, calls gecko_handle_command and reads *gecko_rsp_msg:
//
//     const LineOwner::ExchangeTurn turn;
//     *gecko_rsp_msg = {};
//     gecko_set_header(*gecko_cmd_msg, 0x03, 0x15, 1);
//     gecko_cmd_msg->payload[0] = 0;
//     gecko_handle_command(gecko_header(*gecko_cmd_msg), gecko_cmd_msg->payload.data());
//     if (gecko_response_id(*gecko_rsp_msg) == gecko_response_id(0x03, 0x15)) ...

constexpr std::size_t kGeckoHeaderSize = 4;
constexpr std::size_t kGeckoMaxPayload = 256;
constexpr std::uint32_t kGeckoQueueLength = 30;  ///< slots of the event ring, of which 29 can be in use

struct gecko_cmd_packet
{
    std::array<std::uint8_t, kGeckoHeaderSize> header;
    std::array<std::uint8_t, kGeckoMaxPayload> payload;
};

// --- Bytes of a packet -------------------------------------------------------------------------------------

constexpr std::uint16_t gecko_get_u16(const std::uint8_t* bytes)
{
    return static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8));
}

constexpr std::uint32_t gecko_get_u32(const std::uint8_t* bytes)
{
    return gecko_get_u16(bytes) | (static_cast<std::uint32_t>(gecko_get_u16(bytes + 2)) << 16);
}

constexpr void gecko_put_u16(std::uint8_t* bytes, std::uint16_t value)
{
    bytes[0] = static_cast<std::uint8_t>(value);
    bytes[1] = static_cast<std::uint8_t>(value >> 8);
}

constexpr void gecko_put_u32(std::uint8_t* bytes, std::uint32_t value)
{
    gecko_put_u16(bytes, static_cast<std::uint16_t>(value));
    gecko_put_u16(bytes + 2, static_cast<std::uint16_t>(value >> 16));
}

/// The four header bytes read as one little-endian word.
constexpr std::uint32_t gecko_header(const gecko_cmd_packet& packet)
{
    return gecko_get_u32(packet.header.data());
}

/// What the header says about the payload: 0 to 2047 bytes.
constexpr std::size_t gecko_payload_length(const gecko_cmd_packet& packet)
{
    return ((packet.header[0] & 0x07u) << 8) | packet.header[1];
}

/// The header with every length bit masked out, which identifies an event: 0x000100A0 is system_boot.
constexpr std::uint32_t gecko_event_id(const gecko_cmd_packet& packet)
{
    return gecko_header(packet) & 0xFFFF00F8u;
}

/// The header with the low length byte masked out, by which a response is recognised; a response is never
/// long enough to set the other length bits.
constexpr std::uint32_t gecko_response_id(const gecko_cmd_packet& packet)
{
    return gecko_header(packet) & 0xFFFF00FFu;
}

/// The response id of a command.
constexpr std::uint32_t gecko_response_id(std::uint8_t classId, std::uint8_t commandId)
{
    return 0x20u | (static_cast<std::uint32_t>(classId) << 16) |
           (static_cast<std::uint32_t>(commandId) << 24);
}

/// Writes the header of a command.
/// @param length payload bytes, at most kGeckoMaxPayload
constexpr void gecko_set_header(gecko_cmd_packet& packet, std::uint8_t classId, std::uint8_t commandId,
                                std::size_t length)
{
    packet.header = {static_cast<std::uint8_t>(0x20u | ((length >> 8) & 0x07u)),
                     static_cast<std::uint8_t>(length), classId, commandId};
}

// --- Shared state ------------------------------------------------------------------------------------------

/// The one outgoing command. Written in an ExchangeTurn.
extern gecko_cmd_packet* const gecko_cmd_msg;
/// The one response. Written and read in an ExchangeTurn.
extern gecko_cmd_packet* const gecko_rsp_msg;

/// Ring of received events, empty when both positions are equal. Used in an ExchangeTurn; the positions are
/// atomic for gecko_event_pending, which takes none.
extern std::array<gecko_cmd_packet, kGeckoQueueLength> gecko_queue;
extern std::atomic<std::uint32_t> gecko_queue_r;
extern std::atomic<std::uint32_t> gecko_queue_w;

/// The line. Bound by NCPDriver_Init; a test, a benchmark or a fuzzer binds its own.
using bglib_output_function = std::int32_t (*)(std::uint32_t length, const std::uint8_t* bytes);
using bglib_input_function = std::int32_t (*)(std::uint32_t length, std::uint8_t* buffer);
using bglib_peek_function = std::int32_t (*)();
extern std::atomic<bglib_output_function> bglib_output;  ///< writes all bytes; negative on failure
extern std::atomic<bglib_input_function> bglib_input;  ///< reads exactly that many bytes; negative on failure
extern std::atomic<bglib_peek_function> bglib_peek;    ///< bytes waiting, negative on failure; may be null

// --- Commands ----------------------------------------------------------------------------------------------
// Any thread. While the line is let go (LineOwner.h) no byte is sent and the response is all zero.

/// Drops responses that came too late for earlier commands, sends the packet in *gecko_cmd_msg, waits 10 ms,
/// then takes the first response that 100 looks at the line find, queueing the events that come before it. A
/// response that does not come leaves *gecko_rsp_msg as the caller cleared it; one that is cut short leaves
/// it all zero. Both arguments are unused: the buffer is sent.
void gecko_handle_command(std::uint32_t header, void* payload);
/// Sends the packet in *gecko_cmd_msg. Both arguments are unused.
void gecko_handle_command_noresponse(std::uint32_t header, void* payload);

// --- Events ------------------------------------------------------------------------------------------------
// The result points into the event ring and stays valid until the ring wraps over it; or it is gecko_rsp_msg,
// when a response came that no command waits for. A caller that looks into the packet therefore takes its
// turn before the call and copies what it needs before giving it back.

/// The oldest event, waiting for one; null only when the line fails or is let go or a packet is cut. Holds
/// its turn, and with it every command, while it waits. Any thread.
gecko_cmd_packet* gecko_wait_event();
/// The oldest event, or null when none is there. Waits only for the rest of a packet that has begun, and for
/// that only while bytes keep coming. Any thread.
gecko_cmd_packet* gecko_peek_event();
/// Whether an event of this id (gecko_event_id) waits in the ring for its reader. Any thread.
bool gecko_event_queued(std::uint32_t id);
/// 1 when an event is queued or bytes wait on the line (or looking at the line fails), else 0. Any thread;
/// the answer may be outdated when it arrives.
int gecko_event_pending();
/// Forgets every queued event. While the line is let go and no exchange is in progress.
void gecko_discard_events();

// --- In an ExchangeTurn ------------------------------------------------------------------------------------

/// Reads one packet: a response into *gecko_rsp_msg, which is returned; an event into the ring, where one
/// that finds no free slot is dropped. Null for an event, a byte of noise (one a call is dropped: that is how
/// the reader finds back to the packets), a header that announces more than 256 bytes, or a failing line. The
/// rest of a packet is waited for as long as no 100 ms pass without a byte; then what has come of it is
/// dropped, but an event whose header has come goes into the ring with zeros for payload. Without bglib_peek
/// the wait has no limit.
gecko_cmd_packet* gecko_wait_message();
/// The next response, or null after 100 tries; a try is a look at the line that finds nothing, an event or
/// noise.
gecko_cmd_packet* gecko_wait_response();
/// The oldest event; with @p block 0, null when nothing waits. A failing line ends the call with null.
gecko_cmd_packet* gecko_get_event(int block);
