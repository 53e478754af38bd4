#include "Console.h"

#include <algorithm>

namespace efr32sim {
namespace {
ByteSpan bytesOf(const std::string& text)
{
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// What a sender still sends after an upload broke off is no key; the console waits for this much silence.
constexpr Milliseconds kPurge{200};
}  // namespace

void Console::enter(bool mute, bool greet)
{
    m_mute = mute;
    m_uploading = false;
    m_deafUntil = {};
    if (greet && !mute)
        showMenu();
}

void Console::feed(ByteSpan bytes)
{
    if (m_mute)
        return;
    const auto now = Clock::now();
    for (const std::uint8_t byte : bytes) {
        if (m_uploading) {
            m_lastByte = now;
            settle(m_receiver.feed(byte));
        } else if (now < m_deafUntil) {
            m_deafUntil = now + kPurge;
        } else {
            key(byte);
        }
    }
}

void Console::key(std::uint8_t byte)
{
    m_board.report(EventKind::ConsoleKey, {{"key", byte}});
    switch (byte) {
        case '\r':
            showMenu();
            break;
        case '1':
            startUpload();
            break;
        case '2':
            run();
            break;
        case '3':
            m_board.say(bytesOf(m_board.options().information));
            showMenu();
            break;
        default:
            break;  // the console has no other keys and says nothing to them
    }
}

void Console::showMenu()
{
    m_board.say(bytesOf(m_board.options().menu));
    std::string prompt = m_board.options().prompt;
    if (const auto fault = m_board.faults().take(FaultKind::NoisyPrompt)) {
        const Bytes noise = fault->bytes.empty() ? Bytes{0xFF, 0x00} : fault->bytes;
        prompt.insert(std::min<std::size_t>(2, prompt.size()), std::string(noise.begin(), noise.end()));
    }
    m_board.report(EventKind::Prompt, {});
    m_board.say(bytesOf(prompt));
}

void Console::run()
{
    if (m_board.flash().runnable) {
        m_board.startFirmware();
        return;
    }
    m_board.say(bytesOf("\r\nNo application\r\n"));
    showMenu();
}

void Console::startUpload()
{
    m_uploading = true;
    m_board.setUploading(true);
    m_board.report(EventKind::UploadStarted, {});
    m_board.say(bytesOf("\r\nbegin upload\r\n"));
    m_receiver.start();
    m_lastByte = Clock::now();
    ++m_upload;
    watchUpload();
}

/// Looks again when patience ends, and in between, because the patience changes with what comes.
void Console::watchUpload()
{
    const ChipOptions& options = m_board.options();
    const auto left = std::chrono::ceil<Milliseconds>(m_lastByte + m_receiver.patience() - Clock::now());
    const Milliseconds pause = std::min({left, options.xmodemPing, options.xmodemStall});
    m_board.after(std::max(pause, Milliseconds(1)), [this, upload = m_upload] {
        if (!m_uploading || upload != m_upload)
            return;
        if (Clock::now() - m_lastByte >= m_receiver.patience()) {
            m_lastByte = Clock::now();
            settle(m_receiver.quiet());
        }
        if (m_uploading)
            watchUpload();
    });
}

void Console::settle(XmodemReceiver::Outcome outcome)
{
    if (outcome == XmodemReceiver::Outcome::Running)
        return;
    m_uploading = false;
    m_board.setUploading(false);
    Flash& flash = m_board.flash();
    flash.runnable = outcome == XmodemReceiver::Outcome::Complete || !m_board.options().uploadErases;
    if (outcome == XmodemReceiver::Outcome::Complete) {
        flash.image = m_receiver.image();
        ++flash.imageCount;
        m_board.report(EventKind::UploadComplete, {{"bytes", number(flash.image.size())},
                                                   {"blocks", number(m_receiver.blocks())},
                                                   {"images", flash.imageCount}});
        m_board.say(bytesOf("\r\nSerial upload complete\r\n"));
    } else {
        m_deafUntil = Clock::now() + kPurge;
        m_board.say(bytesOf("\r\nSerial upload aborted\r\n"));
    }
    showMenu();
}
}  // namespace efr32sim
