#include "XmodemReceiver.h"

#include <boost/crc.hpp>

namespace efr32sim {
namespace {
constexpr std::uint8_t kSoh = 0x01;
constexpr std::uint8_t kEot = 0x04;
constexpr std::uint8_t kAck = 0x06;
constexpr std::uint8_t kNak = 0x15;
constexpr std::uint8_t kCan = 0x18;
constexpr std::uint8_t kPing = 'C';
constexpr unsigned kSetbackLimit = 10;
constexpr unsigned kPingLimit = 60;
}  // namespace

void XmodemReceiver::start()
{
    *this = XmodemReceiver(*m_board);
    answer(kPing);
}

Milliseconds XmodemReceiver::patience() const
{
    return m_begun || m_filled > 0 || m_purging ? m_board->options().xmodemStall
                                                : m_board->options().xmodemPing;
}

void XmodemReceiver::answer(std::uint8_t byte)
{
    m_board->say({&byte, 1});
}

XmodemReceiver::Outcome XmodemReceiver::feed(std::uint8_t byte)
{
    if (m_purging)
        return Outcome::Running;
    if (m_filled == 0)
        return between(byte);
    m_block[m_filled++] = byte;
    if (m_filled < kBlock)
        return Outcome::Running;
    m_filled = 0;
    m_begun = true;
    return judge();
}

/// A byte where a block or the end is due.
XmodemReceiver::Outcome XmodemReceiver::between(std::uint8_t byte)
{
    const bool cancelling = m_cancel;
    m_cancel = byte == kCan;
    switch (byte) {
        case kSoh:
            m_block[m_filled++] = byte;
            return Outcome::Running;
        case kEot:
            answer(kAck);
            return Outcome::Complete;
        case kCan:
            return cancelling ? abort("cancelled by the sender") : Outcome::Running;
        default:
            m_board->report(EventKind::UploadRefused, {{"reason", "noise between blocks"}, {"byte", byte}});
            m_purging = true;
            return Outcome::Running;
    }
}

/// What is wrong with the block in the buffer; null when nothing is.
const char* XmodemReceiver::faultOfBlock() const
{
    if ((m_block[1] ^ m_block[2]) != 0xFF)
        return "block number and complement differ";
    boost::crc_optimal<16, 0x1021, 0, 0, false, false> crc;
    crc.process_bytes(m_block.data() + 3, kData);
    if (crc.checksum() != (m_block[kBlock - 2] << 8 | m_block[kBlock - 1]))
        return "wrong CRC";
    return nullptr;
}

XmodemReceiver::Outcome XmodemReceiver::judge()
{
    if (const char* fault = faultOfBlock())
        return refuse(fault);
    if (m_board->faults().take(FaultKind::CorruptBlock)) {
        answer(kNak);
        return Outcome::Running;
    }
    if (const auto fault = m_board->faults().take(FaultKind::XmodemAnswer)) {
        m_board->say(fault->bytes);
        return Outcome::Running;
    }
    const std::uint8_t number = m_block[1];
    if (number == m_expected) {
        accept();
    } else if (m_begun && m_blocks > 0 && number == static_cast<std::uint8_t>(m_expected - 1)) {
        // The sender has missed the answer: acknowledged again, not stored again.
        m_board->report(EventKind::UploadRefused, {{"reason", "block again"}, {"block", number}});
        answer(kAck);
    } else {
        return abort("block number out of order");
    }
    return Outcome::Running;
}

void XmodemReceiver::accept()
{
    m_image.insert(m_image.end(), m_block.begin() + 3, m_block.begin() + 3 + kData);
    ++m_expected;
    ++m_blocks;
    m_setbacks = 0;
    answer(kAck);
}

XmodemReceiver::Outcome XmodemReceiver::refuse(const char* reason)
{
    m_board->report(EventKind::UploadRefused, {{"reason", reason}, {"block", m_block[1]}});
    if (++m_setbacks > kSetbackLimit)
        return abort("too many setbacks");
    answer(kNak);
    return Outcome::Running;
}

XmodemReceiver::Outcome XmodemReceiver::abort(const char* reason)
{
    m_board->report(EventKind::UploadAborted, {{"reason", reason}, {"blocks", number(m_blocks)}});
    const std::array cancel{kCan, kCan};
    m_board->say(cancel);
    return Outcome::Aborted;
}

XmodemReceiver::Outcome XmodemReceiver::quiet()
{
    if (!m_begun && m_filled == 0 && !m_purging) {
        if (++m_setbacks > kPingLimit)
            return abort("nothing came");
        answer(kPing);
        return Outcome::Running;
    }
    const char* reason = m_purging ? "quiet after noise" : m_filled > 0 ? "block broke off" : "no next block";
    m_purging = false;
    m_filled = 0;
    return refuse(reason);
}
}  // namespace efr32sim
