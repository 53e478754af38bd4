#include "Packet.h"

namespace efr32sim {
namespace {
/// A packet that stops coming is given up, so that a host that died in the middle of one is heard again.
constexpr Milliseconds kStall{500};
}  // namespace

Bytes encodePacket(std::uint8_t type, const Packet& packet)
{
    const std::size_t length = packet.payload.size();
    return Writer()
        .u8(type | (length >> 8 & 7))
        .u8(length)
        .u8(packet.id.classId)
        .u8(packet.id.id)
        .raw(packet.payload)
        .take();
}

Writer& Writer::integer(std::size_t value, int bytes)
{
    for (; bytes > 0; --bytes, value >>= 8)
        m_bytes.push_back(static_cast<std::uint8_t>(value));
    return *this;
}

Writer& Writer::raw(ByteSpan bytes)
{
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    return *this;
}

ByteSpan Reader::raw(std::size_t count)
{
    if (count > m_bytes.size()) {
        m_ok = false;
        m_bytes = {};
        return {};
    }
    const ByteSpan taken = m_bytes.first(count);
    m_bytes = m_bytes.subspan(count);
    return taken;
}

std::uint32_t Reader::integer(std::size_t count)
{
    const ByteSpan bytes = raw(count);
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        value = value << 8 | bytes[i];
    return value;
}

PacketReader::Result PacketReader::feed(ByteSpan bytes, Clock::time_point now)
{
    Result result;
    if (now - m_lastByte > kStall)
        result.refused.swap(m_pending);
    m_lastByte = now;
    m_pending.insert(m_pending.end(), bytes.begin(), bytes.end());
    while (step(result)) {
    }
    return result;
}

bool PacketReader::step(Result& result)
{
    if (m_pending.empty())
        return false;
    if ((m_pending[0] & 0xF8) != kCommandType) {
        result.refused.push_back(m_pending[0]);
        m_pending.erase(m_pending.begin());
        return true;
    }
    if (m_pending.size() < kPacketHeader)
        return false;
    const std::size_t length = static_cast<std::size_t>(m_pending[0] & 7) << 8 | m_pending[1];
    const std::size_t whole = length > kPacketPayload ? kPacketHeader : kPacketHeader + length;
    if (m_pending.size() < whole)
        return false;
    const auto end = m_pending.begin() + static_cast<std::ptrdiff_t>(whole);
    if (length > kPacketPayload)
        result.refused.insert(result.refused.end(), m_pending.begin(), end);
    else
        result.packets.push_back(
            {{m_pending[2], m_pending[3]}, Bytes(m_pending.begin() + kPacketHeader, end)});
    m_pending.erase(m_pending.begin(), end);
    return true;
}
}  // namespace efr32sim
