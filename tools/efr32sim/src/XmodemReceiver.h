#pragma once

#include "Board.h"

#include <array>

namespace efr32sim {
/// A strict XMODEM-CRC receiver for 128-byte blocks.
/// Block: SOH, number, its one's complement, 128 data bytes, CRC-16 (polynomial 0x1021, initial value 0)
/// high byte first.
class XmodemReceiver
{
public:
    enum class Outcome { Running, Complete, Aborted };

    explicit XmodemReceiver(Board& board) : m_board(&board) {}

    /// Asks for the first block.
    void start();
    [[nodiscard]] Outcome feed(std::uint8_t byte);
    /// To be called when no byte has come for the stall or ping time.
    [[nodiscard]] Outcome quiet();
    /// How long to wait for the next byte before quiet().
    [[nodiscard]] Milliseconds patience() const;
    [[nodiscard]] const Bytes& image() const { return m_image; }
    [[nodiscard]] unsigned blocks() const { return m_blocks; }

private:
    static constexpr std::size_t kData = 128;
    static constexpr std::size_t kBlock = 3 + kData + 2;

    [[nodiscard]] Outcome between(std::uint8_t byte);
    [[nodiscard]] Outcome judge();
    [[nodiscard]] const char* faultOfBlock() const;
    [[nodiscard]] Outcome refuse(const char* reason);
    [[nodiscard]] Outcome abort(const char* reason);
    void answer(std::uint8_t byte);
    void accept();

    Board* m_board;
    Bytes m_image;
    std::array<std::uint8_t, kBlock> m_block{};
    std::size_t m_filled = 0;
    std::uint8_t m_expected = 1;
    unsigned m_blocks = 0;
    unsigned m_setbacks = 0;  // since the last accepted block
    bool m_begun = false;     // a block has come
    bool m_purging = false;   // noise between blocks: waiting for the line to fall quiet
    bool m_cancel = false;    // one CAN has come, a second one ends the transfer
};
}  // namespace efr32sim
