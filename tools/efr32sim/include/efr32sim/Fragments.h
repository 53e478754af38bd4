#pragma once

#include "efr32sim/Types.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace efr32sim {
/// Fragment on the air: byte 0 is the header (bit 7 first fragment of its frame, bits 6 to 4 frame number,
/// bits 3 to 0 fragment number counting down to 0), then 1 to 69 payload bytes. The first fragment of a
/// frame carries the odd piece, every other one exactly 69 bytes.
constexpr std::size_t kFragmentPayload = 69;
/// A frame of the station: seventeen fragments, whose first carries number 0 like a frame of one.
constexpr std::size_t kStationFrame = 1120;
/// The longest frame that the station can take: sixteen fragments.
constexpr std::size_t kPhoneFrame = 1104;

/// Cuts the phone's messages into frames and fragments.
class FragmentEncoder
{
public:
    explicit FragmentEncoder(std::size_t frameSize = kPhoneFrame) : m_frameSize(frameSize) {}

    /// The fragments of a message in the order of sending. Advances the frame number.
    [[nodiscard]] std::vector<Bytes> encode(ByteSpan message);
    /// Frame number of the next frame, 0 to 7.
    [[nodiscard]] std::uint8_t nextFrame() const { return m_frame; }
    void setNextFrame(std::uint8_t frame) { m_frame = frame & 7; }

private:
    std::size_t m_frameSize;
    std::uint8_t m_frame = 0;
};

/// Puts the station's notifications together again and complains about everything that the format forbids.
/// A message starts with its payload length as two bytes, big-endian; the length tells a frame of one
/// fragment from one of seventeen, and where a message of several frames ends.
class Reassembler
{
public:
    struct Result
    {
        std::optional<Bytes> message;         ///< payload of a finished message, without its length bytes
        std::vector<std::string> violations;  ///< one text for each rule that was broken
    };

    [[nodiscard]] Result accept(ByteSpan fragment);
    /// Forgets everything, as a new connection does.
    void reset();
    /// A frame or message has begun and is not complete.
    [[nodiscard]] bool busy() const { return m_inFrame || m_announced; }

private:
    void startFrame(ByteSpan fragment, Result& result);
    void continueFrame(ByteSpan fragment, Result& result);
    void append(ByteSpan payload, Result& result);
    void finishFrame(Result& result);
    void abandon(Result& result, std::string why);
    [[nodiscard]] std::size_t fragmentsOf(ByteSpan fragment) const;
    [[nodiscard]] std::size_t remaining() const;

    Bytes m_message;                          // length bytes and payload so far
    std::optional<std::size_t> m_announced;   // whole message with its length bytes
    std::optional<std::uint8_t> m_lastFrame;  // frame number of the last frame that began
    bool m_inFrame = false;
    std::size_t m_fragmentsLeft = 0;
    std::size_t m_frameStart = 0;  // where this frame begins in m_message
};
}  // namespace efr32sim
