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
    const auto missing = std::span(m_frame).first<kAnswerHeaderSize>().subspan(m_headerCount);
    const ssize_t count = stream.read(missing);
    if (count <= 0)
        return false;
    m_headerCount += static_cast<std::size_t>(count);
    return m_headerCount == kAnswerHeaderSize;
}

PipeFrameReader::Status PipeFrameReader::poll(ByteStreamI& stream)
{
    if (!completeHeader(stream))
        return Status::Nothing;
    m_headerCount = 0;
    m_payloadCount = 0;
    m_length =
        static_cast<std::size_t>(m_frame[kAnswerLengthOffset]) << 8U | m_frame[kAnswerLengthOffset + 1];
    if (m_length == 0 || m_length > kMaxAnswerSize)
        return Status::InvalidLength;
    const ssize_t count = stream.read(std::span(m_frame).subspan(kAnswerHeaderSize, m_length));
    if (count <= 0)
        return Status::PayloadMissing;
    m_payloadCount = static_cast<std::size_t>(count);
    return Status::Frame;
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
