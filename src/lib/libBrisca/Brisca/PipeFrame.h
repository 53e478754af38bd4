#pragma once

#include "ByteStreamI.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

// The two frame formats between the bridge and the CoAP application. Their length fields differ in byte
// order.
//
//   application to bridge                          bridge to application
//   offset size                                    offset size
//   0      2    not interpreted                    0      2    N, little-endian
//   2      2    L, big-endian, 1 to 4475           2      N    whole messages of the phone
//   4      L    payload

constexpr std::size_t kAnswerHeaderSize = 4;
constexpr std::size_t kAnswerLengthOffset = 2;
constexpr std::size_t kAnswerLengthSize = 2;
constexpr std::size_t kMaxAnswerSize = 4475;
constexpr std::size_t kRequestHeaderSize = 2;
/// Room for the bytes of one read from the transport: it may deliver a whole frame more than it was asked
/// for.
constexpr std::size_t kRequestBufferSize = 8192;

/// Takes the frames of the application out of a byte stream. Keeps a header that came in part; everything
/// else it needs is there at once or lost, because an application writes header and payload together. Only of
/// a frame that it drops it awaits the rest, however late that comes.
class PipeFrameReader
{
public:
    enum class Status {
        Nothing,         ///< no complete header yet
        InvalidLength,   ///< length() is 0 or above kMaxAnswerSize; what follows is read as the next header
        PayloadMissing,  ///< nothing behind the header, which is dropped
        Frame,           ///< message() is complete, or as long as what was there
        Dropped,         ///< a frame that nobody awaits; counted once, when its header is complete
    };

    /// Reads at most one frame.
    /// @param awaited false drops the frame whose header comes in now
    [[nodiscard]] Status poll(ByteStreamI& stream, bool awaited);
    /// Nobody awaits the frame whose header came in part, nor those that begin in the next bytes.
    /// @param waiting bytes in the stream
    void disown(std::size_t waiting);
    /// Forgets a header that came in part, and the rest of a dropped frame.
    void reset();

    // Valid after a poll() that returned anything but Nothing, until the next one.
    [[nodiscard]] std::span<const std::uint8_t> header() const;
    /// The length that the header announces.
    [[nodiscard]] std::size_t length() const { return m_length; }
    /// What goes to the phone: the big-endian length field, unchanged, and the payload bytes that came.
    [[nodiscard]] std::span<const std::uint8_t> message() const;

private:
    /// Bytes read, 0 when there are none.
    std::size_t take(ByteStreamI& stream, std::span<std::uint8_t> buffer);
    [[nodiscard]] bool completeHeader(ByteStreamI& stream);
    [[nodiscard]] bool finishDropped(ByteStreamI& stream);

    std::array<std::uint8_t, kAnswerHeaderSize + kMaxAnswerSize> m_frame = {};
    std::size_t m_disowned = 0;     // bytes ahead in which no awaited frame begins
    std::size_t m_droppedRest = 0;  // payload of a dropped frame that is still to come
    bool m_headerAwaited = true;    // the frame whose header comes in
    std::size_t m_headerCount = 0;
    std::size_t m_length = 0;
    std::size_t m_payloadCount = 0;
};

/// Puts frames for the application into a byte stream, each as a whole or not at all: a header without its
/// payload would misalign the application for good. A stream that takes only part of a frame gets the rest
/// from finish().
class PipeFrameWriter
{
public:
    /// What became of header and payload: bytes written, or -1 when the stream took nothing.
    struct Written
    {
        int header;
        int payload;
    };

    /// Where the payload of the next frame goes, kRequestBufferSize bytes.
    [[nodiscard]] std::span<std::uint8_t> payload();
    /// Writes a frame of the first @p length bytes of payload(). A stream without room loses it.
    Written write(ByteStreamI& stream, std::size_t length);
    /// Writes what is left of a frame.
    /// @return true when nothing is left
    [[nodiscard]] bool finish(ByteStreamI& stream);
    /// The bytes of the last frame's header.
    [[nodiscard]] std::span<const std::uint8_t> header() const;
    /// Gives up the rest of a frame.
    void reset() { m_next = m_end = 0; }

private:
    std::array<std::uint8_t, kRequestHeaderSize + kRequestBufferSize> m_frame = {};
    std::size_t m_next = 0;
    std::size_t m_end = 0;
};
