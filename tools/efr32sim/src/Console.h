#pragma once

#include "XmodemReceiver.h"

namespace efr32sim {
/// The bootloader's console: a numbered menu and a prompt.
class Console
{
public:
    explicit Console(Board& board) : m_board(board), m_receiver(board) {}

    /// Begins anew. @p mute: says nothing until the next reset. @p greet: shows the menu by itself.
    void enter(bool mute, bool greet);
    void feed(ByteSpan bytes);

private:
    void key(std::uint8_t byte);
    void showMenu();
    void startUpload();
    void run();
    void watchUpload();
    void settle(XmodemReceiver::Outcome outcome);

    Board& m_board;
    XmodemReceiver m_receiver;
    bool m_mute = false;
    bool m_uploading = false;
    unsigned m_upload = 0;  // counts uploads, so that an old watch ends
    Clock::time_point m_lastByte;
    Clock::time_point m_deafUntil;  // after an upload broke off
};
}  // namespace efr32sim
