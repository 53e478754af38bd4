#include "NCPManagerSBL.h"

#include "GOS.h"
#include "LineOwner.h"
#include "NCPDriver.h"
#include "crc16.h"
#include "gecko.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <span>
#include <string_view>

namespace {
constexpr int kResetAttempts = 3;
constexpr int kReceiveRounds = 1000;
constexpr unsigned kRoundMs = 2;

constexpr std::string_view kPrompt = "BL >";
constexpr std::string_view kUploadDone = "complete";
constexpr std::uint8_t kMenuUpload = '1';
constexpr std::uint8_t kMenuRun = '2';

constexpr std::uint8_t kDfuClass = 0x00;
constexpr std::uint8_t kDfuReset = 0x00;
constexpr std::uint8_t kRebootIntoBootloader = 1;

// XMODEM-CRC
constexpr std::uint8_t kSoh = 0x01;
constexpr std::uint8_t kEot = 0x04;
constexpr std::uint8_t kAck = 0x06;
constexpr std::uint8_t kCrcRequest = 'C';
constexpr std::uint8_t kPad = 0x1A;
constexpr std::size_t kBlockHeaderSize = 3;
constexpr std::size_t kBlockSize = kBlockHeaderSize + kSblBlockDataSize + 2;

std::atomic<std::uint8_t> bootloaderMode{0};
std::uint16_t blockCounter = 0;  // of the last block sent; the upgrading task's

void flush()
{
    static_cast<void>(std::fflush(stdout));  // a display that is gone has no one to report to
}

void print(const char* text)
{
    static_cast<void>(std::fputs(text, stdout));
    flush();
}

void echo(std::uint8_t byte)
{
    if (byte == '\r' || byte == '\n' || byte >= ' ')
        std::putchar(byte);
    else
        std::printf("%02XH ", byte);
}

// Takes bytes one by one until the whole text was among them. A byte that does not fit is not tried as the
// text's first.
class TextMatch
{
public:
    explicit TextMatch(std::string_view text) : m_text(text) {}
    bool operator()(std::uint8_t byte)
    {
        if (m_matched < m_text.size())
            m_matched = byte == static_cast<std::uint8_t>(m_text[m_matched]) ? m_matched + 1 : 0;
        return m_matched == m_text.size();
    }

private:
    std::string_view m_text;
    std::size_t m_matched = 0;
};

// Echoes what the bootloader sends until a byte of it completes the match; false after about 2 s without.
template <class Match>
bool waitFor(Match match)
{
    for (int round = 0; round < kReceiveRounds; ++round) {
        GOS_WaitForDelay(kRoundMs);
        std::array<std::uint8_t, kRxAllCapacity> bytes;
        bool found = false;
        for (const std::uint8_t byte : std::span(bytes).first(NCPDriver_RxAll(bytes.data()))) {
            echo(byte);
            found = match(byte) || found;
        }
        flush();
        if (found)
            return true;
    }
    return false;
}

bool waitForText(std::string_view text)
{
    return waitFor(TextMatch(text));
}

bool waitForByte(std::uint8_t wanted)
{
    return waitFor([wanted](std::uint8_t byte) { return byte == wanted; });
}

void sendByte(std::uint8_t byte)
{
    NCPDriver_Tx(1, &byte);
}

bool inBootloader()
{
    return bootloaderMode == 1;
}

bool rebootIntoBootloader()
{
    {
        const LineOwner::ExchangeTurn turn;
        gecko_set_header(*gecko_cmd_msg, kDfuClass, kDfuReset, 1);
        gecko_cmd_msg->payload[0] = kRebootIntoBootloader;
        gecko_handle_command_noresponse(gecko_header(*gecko_cmd_msg), gecko_cmd_msg->payload.data());
    }
    return waitForText(kPrompt);
}

std::array<std::uint8_t, kBlockSize> buildBlock(std::uint16_t number,
                                                std::span<const std::uint8_t, kSblBlockDataSize> data)
{
    const auto low = static_cast<std::uint8_t>(number);
    std::array<std::uint8_t, kBlockSize> block = {kSoh, low, static_cast<std::uint8_t>(~low)};
    auto* const crc = std::copy(data.begin(), data.end(), block.begin() + kBlockHeaderSize);
    const std::uint16_t sum = crc16(data.data(), kSblBlockDataSize);
    crc[0] = static_cast<std::uint8_t>(sum >> 8);
    crc[1] = static_cast<std::uint8_t>(sum);
    return block;
}

std::uint32_t sendImage(std::span<const std::uint8_t> image)
{
    std::array<std::uint8_t, kSblBlockDataSize> data = {};
    for (std::size_t sent = 0; sent < image.size();) {
        const auto piece = image.subspan(sent, std::min(data.size(), image.size() - sent));
        auto* const end = std::copy(piece.begin(), piece.end(), data.begin());
        // One pad byte only, as the header says.
        if (end != data.end())
            *end = kPad;
        sent += piece.size();
        std::printf("\r%d%%", static_cast<int>(std::uint64_t{100} * sent / image.size()));
        flush();
        if (NCPManagerSBL_SendBlock(data.data()) != 1) {
            print("Can't receive ACK");
            return 0;
        }
    }
    return 1;
}
}  // namespace

std::uint32_t NCPManagerSBL_GotoBootloader()
{
    bootloaderMode = 1;
    NCPDriver_ClearRXBuffer();
    print("\nForce to bootloader");
    for (int attempt = 0; attempt < kResetAttempts; ++attempt) {
        // Also before a second attempt, or the event pump would take bytes of the prompt.
        bootloaderMode = 1;
        if (rebootIntoBootloader()) {
            print("\nNCP is at boot loader mode");
            return 1;
        }
        print("\nNCP goto bootloader failed!!!");
        bootloaderMode = 0;
    }
    return 0;
}

std::uint32_t NCPManagerSBL_StartUpgrade()
{
    if (!inBootloader())
        return 0;
    blockCounter = 0;
    print("Start upgrade...");
    sendByte(kMenuUpload);
    const bool started = waitForByte(kCrcRequest);
    print(started ? "\nStart upgrade success!" : "\nStart upgrade FAILED!!!");
    return started ? 1 : 0;
}

std::uint32_t NCPManagerSBL_SendBlock(const std::uint8_t* data)
{
    if (!inBootloader())
        return 0;
    ++blockCounter;
    const auto block =
        buildBlock(blockCounter, std::span<const std::uint8_t, kSblBlockDataSize>(data, kSblBlockDataSize));
    NCPDriver_Tx(block.size(), block.data());
    return waitForByte(kAck) ? 1 : 0;
}

std::uint32_t NCPManagerSBL_SendEOT()
{
    if (!inBootloader())
        return 0;
    print("\nSend EOT!");
    sendByte(kEot);
    if (!waitForText(kUploadDone))
        return 0;
    // The upload is over whether or not the menu comes back.
    static_cast<void>(waitForText(kPrompt));
    return 1;
}

std::uint32_t NCPManagerSBL_RunApp()
{
    if (!inBootloader())
        return 0;
    print("\nRun exploit...");
    sendByte(kMenuRun);
    if (waitForText(kPrompt)) {
        print("Run exploit FAILED!");
        return 0;
    }
    print("Run exploit SUCCESS!!!");
    bootloaderMode = 0;
    return 1;
}

std::uint32_t NCPManagerSBL_FWUpgrade(const std::uint8_t* image, std::uint32_t size)
{
    if (NCPManagerSBL_GotoBootloader() != 1 || NCPManagerSBL_StartUpgrade() != 1)
        return 0;
    if (sendImage(std::span(image, size)) != 1 || NCPManagerSBL_SendEOT() != 1)
        return 0;
    return NCPManagerSBL_RunApp();
}

std::uint8_t NCPManagerSBL_GetIsBootloaderMode()
{
    return bootloaderMode;
}
