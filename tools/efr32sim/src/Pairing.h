#pragma once

#include "Board.h"
#include "Packet.h"

#include <random>

namespace efr32sim {
/// Pairing and bonding of the one connection.
class Pairing
{
public:
    /// What pairing tells the rest of the firmware.
    class Listener
    {
    public:
        virtual ~Listener() = default;
        virtual void pairingEvent(std::uint8_t id, Bytes payload) = 0;
        virtual void paired(std::uint8_t bonding) = 0;
    };

    Pairing(Board& board, Listener& listener) : m_board(board), m_listener(listener) {}

    /// Forgets the host's settings too.
    void reset() { m_state = {}; }
    void setBondable(bool bondable) { m_state.bondable = bondable; }
    void configure(std::uint8_t flags, std::uint8_t ioCapabilities);
    void setLimit(std::uint8_t bonds) { m_state.limit = bonds; }
    void setPasskey(std::int32_t passkey) { m_state.fixedPasskey = passkey; }

    void start(const Address& peer);
    void stop() { m_state.waiting = Waiting::Nobody; }
    // Each is false when pairing does not wait for just this.
    bool hostConfirmsBonding(bool confirm);
    bool hostPasskey(std::int32_t passkey);
    bool hostConfirmsPasskey(bool confirm);
    bool peerPasskey(std::uint32_t passkey);

private:
    enum class Waiting { Nobody, BondingConfirm, PeerPasskey, PasskeyConfirm, HostPasskey };
    struct State
    {
        bool bondable = false;
        std::uint8_t flags = 0;
        std::uint8_t ioCapabilities = 3;
        std::uint8_t limit = 13;
        std::int32_t fixedPasskey = -1;
        Waiting waiting = Waiting::Nobody;
        Address peer{};
        std::uint32_t passkey = 0;
    };

    void wait(Waiting whom, const char* step, std::uint8_t event, Bytes payload);
    void exchangeKeys();
    void finish();
    void fail(std::uint16_t reason);
    bool settle(Waiting whom, bool good, std::uint16_t reason);
    [[nodiscard]] std::optional<std::uint8_t> store();

    Board& m_board;
    Listener& m_listener;
    State m_state;
    std::minstd_rand m_random{1};  // NOLINT(cert-msc32-c,cert-msc51-cpp): every run shows the same passkeys
};
}  // namespace efr32sim
