// Pairing and bonds, radio tests and user messages.
#include "Commands.h"

namespace efr32sim {
namespace {
constexpr std::uint8_t kHighestTestChannel = 39;
constexpr std::int32_t kHighestPasskey = 999999;
}  // namespace

// --- Security ---------------------------------------------------------------------------------------

bool Coprocessor::pair()
{
    if (m_state.link.connected)
        m_pairing.start(m_state.link.peer);
    return m_state.link.connected;
}

Coprocessor::Answer Coprocessor::securityBondable(Reader& in)
{
    m_pairing.setBondable(in.u8() != 0);
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::securityConfigure(Reader& in)
{
    const std::uint8_t flags = in.u8();
    const std::uint8_t capabilities = in.u8();
    if (capabilities > 4)
        return result(CommandResult::InvalidParameter);
    m_pairing.configure(flags, capabilities);
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::securityStoreConfiguration(Reader& in)
{
    m_pairing.setLimit(in.u8());
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::securityIncrease(Reader& in)
{
    return result(isLink(in.u8()) && pair(), CommandResult::InvalidConnection);
}

Coprocessor::Answer Coprocessor::securityDeleteBonding(Reader& in)
{
    const std::uint8_t handle = in.u8();
    const auto gone = std::erase_if(m_board.flash().bonds,
                                    [handle](const Flash::Bond& bond) { return bond.handle == handle; });
    return result(gone > 0, CommandResult::InvalidParameter);
}

Coprocessor::Answer Coprocessor::securityDeleteBondings(Reader&)
{
    m_board.flash().bonds.clear();
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::securityEnterPasskey(Reader& in)
{
    if (!isLink(in.u8()))
        return result(CommandResult::InvalidConnection);
    return result(m_pairing.hostPasskey(static_cast<std::int32_t>(in.u32())), CommandResult::WrongState);
}

Coprocessor::Answer Coprocessor::securityConfirmPasskey(Reader& in)
{
    if (!isLink(in.u8()))
        return result(CommandResult::InvalidConnection);
    return result(m_pairing.hostConfirmsPasskey(in.u8() != 0), CommandResult::WrongState);
}

Coprocessor::Answer Coprocessor::securityConfirmBonding(Reader& in)
{
    if (!isLink(in.u8()))
        return result(CommandResult::InvalidConnection);
    return result(m_pairing.hostConfirmsBonding(in.u8() != 0), CommandResult::WrongState);
}

Coprocessor::Answer Coprocessor::securitySetPasskey(Reader& in)
{
    const auto passkey = static_cast<std::int32_t>(in.u32());
    if (passkey > kHighestPasskey)
        return result(CommandResult::InvalidParameter);
    m_pairing.setPasskey(passkey);
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::securityListBondings(Reader&)
{
    for (const Flash::Bond& bond : m_board.flash().bonds)
        sendEvent({0x0F, 0x05}, Writer().u8(bond.handle).raw(bond.address).u8(bond.addressType).take());
    sendEvent({0x0F, 0x06}, {});
    return result(CommandResult::Success);
}

// --- Radio tests ------------------------------------------------------------------------------------

void Coprocessor::reportTest(std::uint16_t packets)
{
    sendEvent({0x0E, 0x00}, Writer().u16(0).u16(packets).take());
}

Coprocessor::Answer Coprocessor::testTransmit(Reader& in)
{
    in.raw(2);  // packet type and length
    const std::uint8_t channel = in.u8();
    if (channel > kHighestTestChannel)
        return result(CommandResult::InvalidParameter);
    m_state.testing = true;
    reportTest(0);
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::testReceive(Reader& in)
{
    if (in.u8() > kHighestTestChannel)
        return result(CommandResult::InvalidParameter);
    m_state.testing = true;
    reportTest(0);
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::testEnd(Reader&)
{
    if (!m_state.testing)
        return result(CommandResult::WrongState);
    m_state.testing = false;
    reportTest(m_dtmPackets);
    return result(CommandResult::Success);
}

// --- User messages ----------------------------------------------------------------------------------

Coprocessor::Answer Coprocessor::userMessage(Reader& in)
{
    const ByteSpan request = in.array();
    if (request.empty())
        return emptyArray(CommandResult::InvalidParameter);
    return Writer().u16(0).array(m_userMessages.answer(request)).take();
}
}  // namespace efr32sim
