#include "efr32sim/Fragments.h"

#include <algorithm>
#include <utility>

namespace efr32sim {
namespace {
constexpr std::uint8_t kFirstFlag = 0x80;
constexpr std::size_t kLengthBytes = 2;
constexpr std::size_t kStationFrameFragments = 17;

std::uint8_t frameNumber(std::uint8_t header)
{
    return (header >> 4) & 7;
}

std::uint8_t fragmentNumber(std::uint8_t header)
{
    return header & 15;
}

std::size_t announcedLength(ByteSpan start)
{
    return kLengthBytes + (static_cast<std::size_t>(start[0]) << 8 | start[1]);
}
}  // namespace

std::vector<Bytes> FragmentEncoder::encode(ByteSpan message)
{
    std::vector<Bytes> fragments;
    while (!message.empty()) {
        ByteSpan frame = message.first(std::min(message.size(), m_frameSize));
        message = message.subspan(frame.size());
        const std::size_t count = (frame.size() + kFragmentPayload - 1) / kFragmentPayload;
        std::uint8_t flag = kFirstFlag;
        for (std::size_t left = count; left-- > 0;) {
            const std::size_t size = frame.size() - left * kFragmentPayload;
            Bytes fragment{static_cast<std::uint8_t>(flag | m_frame << 4 | (left & 15))};
            fragment.insert(fragment.end(), frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size));
            fragments.push_back(std::move(fragment));
            frame = frame.subspan(size);
            flag = 0;
        }
        m_frame = (m_frame + 1) & 7;
    }
    return fragments;
}

void Reassembler::reset()
{
    *this = {};
}

Reassembler::Result Reassembler::accept(ByteSpan fragment)
{
    Result result;
    if (fragment.size() < 2 || fragment.size() > kFragmentPayload + 1) {
        abandon(result, "fragment of " + std::to_string(fragment.size()) + " bytes");
        return result;
    }
    if ((fragment[0] & kFirstFlag) != 0)
        startFrame(fragment, result);
    else
        continueFrame(fragment, result);
    return result;
}

std::size_t Reassembler::remaining() const
{
    return *m_announced - m_message.size();
}

/// How many fragments the frame has that this first fragment opens.
std::size_t Reassembler::fragmentsOf(ByteSpan fragment) const
{
    const std::size_t number = fragmentNumber(fragment[0]);
    if (number != 0)
        return number + 1;
    // Number 0 opens a frame of one fragment, or one of seventeen by its odd piece of 1 to 16 bytes. A
    // message begins with its two length bytes, so one byte alone is no frame.
    const ByteSpan payload = fragment.subspan(1);
    if (!m_announced && payload.size() < kLengthBytes)
        return kStationFrameFragments;
    const std::size_t frame = std::min(m_announced ? remaining() : announcedLength(payload), kStationFrame);
    return frame == kPhoneFrame + payload.size() ? kStationFrameFragments : 1;
}

void Reassembler::startFrame(ByteSpan fragment, Result& result)
{
    const std::uint8_t number = frameNumber(fragment[0]);
    if (m_inFrame)
        abandon(result, "a new frame begins before the last one is complete");
    if (m_lastFrame && number != ((*m_lastFrame + 1) & 7)) {
        abandon(result, "frame " + std::to_string(number) + " after frame " + std::to_string(*m_lastFrame));
    }
    m_lastFrame = number;
    m_inFrame = true;
    m_frameStart = m_message.size();
    m_fragmentsLeft = fragmentsOf(fragment);
    append(fragment.subspan(1), result);
}

void Reassembler::continueFrame(ByteSpan fragment, Result& result)
{
    if (!m_inFrame) {
        result.violations.emplace_back("a following fragment outside any frame");
    } else if (frameNumber(fragment[0]) != *m_lastFrame) {
        abandon(result, "fragment of frame " + std::to_string(frameNumber(fragment[0])) + " inside frame " +
                            std::to_string(*m_lastFrame));
    } else if (fragmentNumber(fragment[0]) != m_fragmentsLeft - 1) {
        abandon(result, "fragment " + std::to_string(fragmentNumber(fragment[0])) + " where " +
                            std::to_string(m_fragmentsLeft - 1) + " is due");
    } else if (fragment.size() != kFragmentPayload + 1) {
        abandon(result, "a following fragment of " + std::to_string(fragment.size() - 1) + " payload bytes");
    } else {
        append(fragment.subspan(1), result);
    }
}

void Reassembler::append(ByteSpan payload, Result& result)
{
    m_message.insert(m_message.end(), payload.begin(), payload.end());
    if (--m_fragmentsLeft == 0)
        finishFrame(result);
}

void Reassembler::finishFrame(Result& result)
{
    m_inFrame = false;
    if (m_message.size() < kLengthBytes) {
        abandon(result, "a message too short for its length");
        return;
    }
    if (!m_announced)
        m_announced = announcedLength(m_message);
    const std::size_t frame = m_message.size() - m_frameStart;
    const std::size_t due = std::min(*m_announced - m_frameStart, kStationFrame);
    const std::string wrongSize =
        "a frame of " + std::to_string(frame) + " bytes where " + std::to_string(due) + " are due";
    if (frame < due) {
        // Part of a message whose beginning was lost: what it announces means nothing.
        abandon(result, wrongSize);
        return;
    }
    if (frame > due)
        result.violations.push_back(wrongSize);
    if (m_message.size() < *m_announced)
        return;
    // Bytes beyond the announced length have been complained about; the message before them is whole.
    result.message = Bytes(m_message.begin() + kLengthBytes,
                           m_message.begin() + static_cast<std::ptrdiff_t>(*m_announced));
    m_message.clear();
    m_announced.reset();
}

void Reassembler::abandon(Result& result, std::string why)
{
    result.violations.push_back(std::move(why));
    m_message.clear();
    m_announced.reset();
    m_inFrame = false;
}
}  // namespace efr32sim
