#pragma once

#include "Board.h"
#include "Packet.h"

namespace efr32sim {
/// The firmware's own request protocol inside user messages. Request: a code and its arguments. Reply: the
/// code, a status (0 = done), and values; codes 0 and 14 reply with versions.
class UserMessages
{
public:
    explicit UserMessages(Board& board) : m_board(board) {}
    void reset() { m_state = {}; }
    [[nodiscard]] Bytes answer(ByteSpan request);

private:
    struct State
    {
        std::uint8_t txPower = 0;
        std::uint8_t powerMode = 0;
        std::uint8_t channel = 0;
        std::uint8_t stream = 0;
        bool streaming = false;
        std::uint32_t tune = 0;
    };
    [[nodiscard]] Bytes applicationVersion() const;
    [[nodiscard]] Bytes railVersion() const;
    [[nodiscard]] bool set(std::uint8_t code, Reader& in);
    [[nodiscard]] Bytes get(std::uint8_t code) const;

    Board& m_board;
    State m_state;
};
}  // namespace efr32sim
