#include "PipeFrame.h"

#include <algorithm>

std::span<const std::uint8_t> PipeFrameReader::header() const
{
    return std::span(m_frame).first<kAnswerHeaderSize>();
}

std::span<const std::uint8_t> PipeFrameReader::message() const
{
    return std::span(m_frame).subspan(kAnswerLengthOffset, kAnswerLengthSize + m_payloadCount);
}

bool PipeFrameReader::completeHeader(ByteStreamI& stream)
{
    m_headerCount += take(stream, std::span(m_frame).first<kAnswerHeaderSize>().subspan(m_headerCount));
    return m_headerCount == kAnswerHeaderSize;
}

std::size_t PipeFrameReader::take(ByteStreamI& stream, std::span<std::uint8_t> buffer)
{
    const auto count = static_cast<std::size_t>(std::max<ssize_t>(stream.read(buffer), 0));
    m_disowned -= std::min(m_disowned, count);
    return count;
}

bool PipeFrameReader::finishDropped(ByteStreamI& stream)
{
    if (m_droppedRest > 0)
        m_droppedRest -= take(stream, std::span(m_frame).subspan(kAnswerHeaderSize, m_droppedRest));
    return m_droppedRest == 0;
}

void PipeFrameReader::disown(std::size_t waiting)
{
    m_disowned = waiting;
    m_headerAwaited = false;
}

void PipeFrameReader::reset()
{
    m_headerCount = m_disowned = m_droppedRest = 0;
}

PipeFrameReader::Status PipeFrameReader::poll(ByteStreamI& stream, bool awaited)
{
    if (!finishDropped(stream))
        return Status::Nothing;
    m_headerAwaited = awaited && (m_headerCount == 0 ? m_disowned == 0 : m_headerAwaited);
    if (!completeHeader(stream))
        return Status::Nothing;
    m_headerCount = 0;
    m_payloadCount = 0;
    m_length =
        static_cast<std::size_t>(m_frame[kAnswerLengthOffset]) << 8U | m_frame[kAnswerLengthOffset + 1];
    if (m_length == 0 || m_length > kMaxAnswerSize)
        return Status::InvalidLength;
    if (!m_headerAwaited) {
        m_droppedRest = m_length;
        static_cast<void>(finishDropped(stream));
        return Status::Dropped;
    }
    m_payloadCount = take(stream, std::span(m_frame).subspan(kAnswerHeaderSize, m_length));
    return m_payloadCount == 0 ? Status::PayloadMissing : Status::Frame;
}

std::span<std::uint8_t> PipeFrameWriter::payload()
{
    return std::span(m_frame).subspan<kRequestHeaderSize>();
}

std::span<const std::uint8_t> PipeFrameWriter::header() const
{
    return std::span(m_frame).first<kRequestHeaderSize>();
}

PipeFrameWriter::Written PipeFrameWriter::write(ByteStreamI& stream, std::size_t length)
{
    length = std::min(length, kRequestBufferSize);
    m_frame[0] = static_cast<std::uint8_t>(length);
    m_frame[1] = static_cast<std::uint8_t>(length >> 8U);
    const std::size_t end = kRequestHeaderSize + length;
    const ssize_t count = stream.write(std::span(m_frame).first(end));
    if (count <= 0)
        return {-1, -1};
    m_next = static_cast<std::size_t>(count);
    m_end = end;
    const std::size_t headerPart = std::min(m_next, kRequestHeaderSize);
    return {static_cast<int>(headerPart), static_cast<int>(m_next - headerPart)};
}

bool PipeFrameWriter::finish(ByteStreamI& stream)
{
    if (m_next < m_end)
        m_next += static_cast<std::size_t>(
            std::max<ssize_t>(stream.write(std::span(m_frame).subspan(m_next, m_end - m_next)), 0));
    return m_next == m_end;
}
