#include "Pairing.h"

#include <algorithm>

namespace efr32sim {
namespace {
constexpr std::uint8_t kNoBonding = 0xFF;
constexpr std::uint8_t kConfirmBonding = 0x08;  // flag of the host's security configuration
constexpr std::uint32_t kPasskeys = 1000000;

// Events of the security class.
constexpr std::uint8_t kPasskeyDisplay = 0x00;
constexpr std::uint8_t kPasskeyRequest = 0x01;
constexpr std::uint8_t kConfirmPasskey = 0x02;
constexpr std::uint8_t kBonded = 0x03;
constexpr std::uint8_t kBondingFailed = 0x04;
constexpr std::uint8_t kConfirmBondingEvent = 0x09;

// Input and output capabilities (Bluetooth Core, Vol 3 Part H, 2.3.2).
constexpr std::uint8_t kDisplayOnly = 0;
constexpr std::uint8_t kDisplayYesNo = 1;
constexpr std::uint8_t kNoInputNoOutput = 3;

// Reasons: the Security Manager's own (Bluetooth Core, Vol 3 Part H, 3.5.5) with 0x03 in front.
constexpr std::uint16_t kPasskeyEntryFailed = 0x0301;
constexpr std::uint16_t kPairingNotSupported = 0x0305;
constexpr std::uint16_t kComparisonFailed = 0x030C;
constexpr std::uint16_t kUnspecified = 0x0308;
}  // namespace

void Pairing::configure(std::uint8_t flags, std::uint8_t ioCapabilities)
{
    m_state.flags = flags;
    m_state.ioCapabilities = ioCapabilities;
}

void Pairing::start(const Address& peer)
{
    m_state.peer = peer;
    if (!m_state.bondable)
        fail(kPairingNotSupported);
    else if ((m_state.flags & kConfirmBonding) != 0)
        wait(Waiting::BondingConfirm, "host confirms bonding", kConfirmBondingEvent,
             {kConnection, kNoBonding});
    else
        exchangeKeys();
}

void Pairing::wait(Waiting whom, const char* step, std::uint8_t event, Bytes payload)
{
    m_state.waiting = whom;
    m_board.report(EventKind::PairingStep, {{"step", step}, {"passkey", m_state.passkey}});
    m_listener.pairingEvent(event, std::move(payload));
}

void Pairing::exchangeKeys()
{
    m_state.passkey = m_state.fixedPasskey >= 0 ? static_cast<std::uint32_t>(m_state.fixedPasskey)
                                                : static_cast<std::uint32_t>(m_random()) % kPasskeys;
    Bytes shown = Writer().u8(kConnection).u32(m_state.passkey).take();
    switch (m_state.ioCapabilities) {
        case kNoInputNoOutput:
            finish();
            break;
        case kDisplayOnly:
            wait(Waiting::PeerPasskey, "phone enters the passkey", kPasskeyDisplay, std::move(shown));
            break;
        case kDisplayYesNo:
            wait(Waiting::PasskeyConfirm, "host compares the passkey", kConfirmPasskey, std::move(shown));
            break;
        default:  // the host has a keyboard
            wait(Waiting::HostPasskey, "host enters the phone's passkey", kPasskeyRequest, {kConnection});
            break;
    }
}

bool Pairing::settle(Waiting whom, bool good, std::uint16_t reason)
{
    if (m_state.waiting != whom)
        return false;
    m_state.waiting = Waiting::Nobody;
    if (!good)
        fail(reason);
    else if (whom == Waiting::BondingConfirm)
        exchangeKeys();
    else
        finish();
    return true;
}

bool Pairing::hostConfirmsBonding(bool confirm)
{
    return settle(Waiting::BondingConfirm, confirm, kUnspecified);
}

bool Pairing::hostPasskey(std::int32_t passkey)
{
    return settle(Waiting::HostPasskey,
                  passkey >= 0 && static_cast<std::uint32_t>(passkey) == m_state.passkey,
                  kPasskeyEntryFailed);
}

bool Pairing::hostConfirmsPasskey(bool confirm)
{
    return settle(Waiting::PasskeyConfirm, confirm, kComparisonFailed);
}

bool Pairing::peerPasskey(std::uint32_t passkey)
{
    return settle(Waiting::PeerPasskey, passkey == m_state.passkey, kPasskeyEntryFailed);
}

void Pairing::finish()
{
    const auto bonding = store();
    if (!bonding) {
        fail(kUnspecified);
        return;
    }
    m_board.report(EventKind::Bonded, {{"bonding", *bonding}, {"peer", toText(m_state.peer)}});
    m_listener.pairingEvent(kBonded, {kConnection, *bonding});
    m_listener.paired(*bonding);
}

void Pairing::fail(std::uint16_t reason)
{
    m_board.report(EventKind::BondingFailed, {{"reason", reason}});
    m_listener.pairingEvent(kBondingFailed, Writer().u8(kConnection).u16(reason).take());
}

/// The bond of this peer, made now if there is room.
std::optional<std::uint8_t> Pairing::store()
{
    auto& bonds = m_board.flash().bonds;
    const auto known = std::find_if(bonds.begin(), bonds.end(),
                                    [this](const Flash::Bond& bond) { return bond.address == m_state.peer; });
    if (known != bonds.end())
        return known->handle;
    if (bonds.size() >= m_state.limit)
        return std::nullopt;
    return m_board.flash().addBond(m_state.peer, 0);
}
}  // namespace efr32sim
