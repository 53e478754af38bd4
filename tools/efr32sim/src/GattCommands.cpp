// The attribute store, notifications, and the phone's reads and writes.
#include "Commands.h"

#include <algorithm>

namespace efr32sim {
namespace {
constexpr std::uint8_t kWriteRequest = 0x13;  // ATT opcodes (Bluetooth Core, Vol 3 Part F)
constexpr std::uint8_t kWriteCommand = 0x52;
constexpr std::uint8_t kReadRequest = 0x0A;
constexpr std::uint8_t kClientConfiguration = 1;
constexpr std::uint16_t kAnyHandle = 0;
constexpr std::size_t kNotificationHeader = 3;  // ATT opcode and handle
constexpr std::size_t kLongestValue = 0xFF;
}  // namespace

// --- GATT -------------------------------------------------------------------------------------------

Coprocessor::Answer Coprocessor::gattSetNotification(Reader& in)
{
    return result(isLink(in.u8()), CommandResult::InvalidConnection);
}

Coprocessor::Answer Coprocessor::serverReadValue(Reader& in)
{
    const auto found = m_state.attributes.find(in.u16());
    const std::size_t offset = in.u16();
    if (found == m_state.attributes.end())
        return emptyArray(CommandResult::UnknownAttribute);
    const ByteSpan value = found->second.value;
    if (offset > value.size())
        return emptyArray(CommandResult::InvalidParameter);
    return Writer().u16(0).array(value.subspan(offset)).take();
}

Coprocessor::Answer Coprocessor::serverReadType(Reader& in)
{
    const auto found = m_state.attributes.find(in.u16());
    if (found == m_state.attributes.end())
        return emptyArray(CommandResult::UnknownAttribute);
    return Writer().u16(0).array(found->second.type).take();
}

Coprocessor::Answer Coprocessor::serverWriteValue(Reader& in)
{
    const auto found = m_state.attributes.find(in.u16());
    const std::size_t offset = in.u16();
    const ByteSpan data = in.array();
    if (found == m_state.attributes.end())
        return result(CommandResult::UnknownAttribute);
    Bytes& value = found->second.value;
    if (offset > value.size() || offset + data.size() > kLongestValue)
        return result(CommandResult::InvalidParameter);
    value.resize(offset);
    value.insert(value.end(), data.begin(), data.end());
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::serverFindAttribute(Reader& in)
{
    const std::uint16_t start = in.u16();
    const ByteSpan type = in.array();
    for (const auto& [handle, attribute] : m_state.attributes) {
        if (handle >= start &&
            std::equal(type.begin(), type.end(), attribute.type.begin(), attribute.type.end()))
            return Writer().u16(0).u16(handle).take();
    }
    return Writer().u16(static_cast<std::size_t>(CommandResult::UnknownAttribute)).u16(kAnyHandle).take();
}

Coprocessor::Answer Coprocessor::serverReadResponse(Reader& in)
{
    if (!isLink(in.u8()))
        return result(CommandResult::InvalidConnection);
    const std::uint16_t characteristic = in.u16();
    const std::uint8_t error = in.u8();
    const ByteSpan value = in.array();
    m_board.report(EventKind::AttResult, {{"characteristic", characteristic},
                                          {"operation", "read"},
                                          {"error", error},
                                          {"value", Bytes(value.begin(), value.end())}});
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::serverWriteResponse(Reader& in)
{
    if (!isLink(in.u8()))
        return result(CommandResult::InvalidConnection);
    const std::uint16_t characteristic = in.u16();
    m_board.report(EventKind::AttResult,
                   {{"characteristic", characteristic}, {"operation", "write"}, {"error", in.u8()}});
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::serverNotify(Reader& in)
{
    const std::uint8_t connection = in.u8();
    const std::uint16_t characteristic = in.u16();
    const ByteSpan value = in.array();
    const auto fault = m_board.faults().take(FaultKind::RefuseNotification);
    const char* why = fault                                                           ? "fault"
                      : !isLink(connection)                                           ? "no connection"
                      : !m_state.link.subscribed                                      ? "not subscribed"
                      : value.size() + kNotificationHeader > m_board.options().attMtu ? "longer than the MTU"
                                                                                      : nullptr;
    if (why == nullptr) {
        m_board.report(EventKind::Notification,
                       {{"characteristic", characteristic}, {"value", Bytes(value.begin(), value.end())}});
        m_state.peer->onNotification(characteristic, value);
        return result(CommandResult::Success);
    }
    m_board.report(EventKind::NotificationRefused, {{"characteristic", characteristic}, {"why", why}});
    if (fault)
        return Writer().u16(fault->result).take();
    return result(isLink(connection) ? CommandResult::WrongState : CommandResult::InvalidConnection);
}

// --- The phone's side of GATT -----------------------------------------------------------------------

bool Coprocessor::write(std::uint16_t characteristic, ByteSpan value, bool withResponse)
{
    if (!m_state.link.connected || value.size() > kLongestValue)
        return false;
    const std::uint8_t opcode = withResponse ? kWriteRequest : kWriteCommand;
    m_board.report(EventKind::PhoneWrite, {{"characteristic", characteristic},
                                           {"opcode", opcode},
                                           {"value", Bytes(value.begin(), value.end())}});
    sendEvent({0x0A, 0x02},
              Writer().u8(kConnection).u16(characteristic).u8(opcode).u16(0).array(value).take());
    return true;
}

bool Coprocessor::read(std::uint16_t characteristic)
{
    if (!m_state.link.connected)
        return false;
    m_board.report(EventKind::PhoneRead, {{"characteristic", characteristic}});
    sendEvent({0x0A, 0x01}, Writer().u8(kConnection).u16(characteristic).u8(kReadRequest).u16(0).take());
    return true;
}

bool Coprocessor::subscribe(bool enable)
{
    if (!m_state.link.connected)
        return false;
    m_state.link.subscribed = enable;
    const std::uint16_t characteristic = m_board.options().characteristic;
    sendEvent(
        {0x0A, 0x03},
        Writer().u8(kConnection).u16(characteristic).u8(kClientConfiguration).u16(enable ? 1 : 0).take());
    return true;
}
}  // namespace efr32sim
