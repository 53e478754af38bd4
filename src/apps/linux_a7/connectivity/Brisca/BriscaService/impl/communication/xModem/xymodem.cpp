#include "xymodem.h"

#include "Failure.h"
#include "ImageFile.h"
#include "TransferLine.h"
#include "crc16.h"
#include "facade/Log.h"
#include "facade/LogText.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

BRISCA_LOG_NODE(logNode, "BriscaService.comm.xmodem");

namespace {
constexpr unsigned char kStartOfHeader = 0x01;
constexpr unsigned char kEndOfTransfer = 0x04;
constexpr unsigned char kAcknowledge = 0x06;
constexpr unsigned char kNotAcknowledge = 0x15;
constexpr unsigned char kCancel = 0x18;
constexpr unsigned char kReceiverPing = 'C';

// One packet on the wire.
constexpr std::size_t kHeaderOffset = 0;
constexpr std::size_t kNumberOffset = 1;
constexpr std::size_t kComplementOffset = 2;
constexpr std::size_t kDataOffset = 3;
constexpr std::size_t kDataLength = UploadProgress::kBlockBytes;
constexpr std::size_t kCrcOffset = kDataOffset + kDataLength;  // two bytes, high byte first
constexpr std::size_t kPacketLength = kCrcOffset + 2;

constexpr unsigned char kFiller = 0xFF;  // erased flash, so that the filling programs nothing
constexpr unsigned char kFirstBlock = 1;
constexpr std::size_t kMaxUnexpectedBytes = 55;
constexpr int kAbandoned = -1;
constexpr std::chrono::seconds kCancelLimit{2};
constexpr std::size_t kMaxCancelText = 4096;

using Packet = std::array<unsigned char, kPacketLength>;

int waitForReceiverPing(TransferLine& line)
{
    BRISCA_DEBUG(logNode, "Waiting for receiver ping ...");
    (void)std::fflush(stdout);
    unsigned char byte = 0;
    while (byte != kReceiverPing) {
        const int result = line.receive(byte);
        if (result == -ECANCELED)
            return result;
        if (result != 0) {
            std::perror("read");
            BRISCA_ERROR(logNode, "Reading error during waiting 'C' character");
            return result;
        }
    }
    BRISCA_DEBUG(logNode, "done.");
    return 0;
}

int fillPacket(Packet& packet, unsigned char number, const ImageFile& image, off_t position)
{
    const auto data = std::span(packet).subspan<kDataOffset, kDataLength>();
    const auto length = static_cast<std::size_t>(std::min<off_t>(image.size() - position, kDataLength));
    if (const int result = image.read(position, data.first(length)); result != 0)
        return result;
    std::ranges::fill(data.subspan(length), kFiller);
    packet[kHeaderOffset] = kStartOfHeader;
    packet[kNumberOffset] = number;
    packet[kComplementOffset] = static_cast<unsigned char>(~number);
    const unsigned short crc = swap16(crc16(data.data(), kDataLength));
    packet[kCrcOffset] = static_cast<unsigned char>(crc & 0xFF);
    packet[kCrcOffset + 1] = static_cast<unsigned char>(crc >> 8);
    return 0;
}

/// The progress mark of an answer. @p unexpected collects what is no answer; the receiver's own error
/// messages show there.
char judge(unsigned char answer, std::string& unexpected)
{
    switch (answer) {
        case kAcknowledge:
            unexpected.clear();
            return '.';
        case kNotAcknowledge:
            unexpected.clear();
            return 'N';
        case 0x00:
            return '?';
        default:
            unexpected += static_cast<char>(answer);
            return '?';
    }
}

int sendUntilAcknowledged(TransferLine& line, const Packet& packet, UploadProgress& progress)
{
    std::string unexpected;
    unsigned char answer = 0;
    for (int repeats = 0; answer != kAcknowledge; ++repeats) {
        progress.repeats = repeats;
        if (const int result = line.send(packet); result != 0)
            return result;
        if (const int result = line.receive(answer); result != 0)
            return result;
        const char mark = judge(answer, unexpected);
        const bool abandoned = unexpected.size() > kMaxUnexpectedBytes;
        if (abandoned)
            BRISCA_DEBUG(logNode, "Error: %s", unexpected.c_str());
        BRISCA_DEBUG(logNode, "%c\tanswer: %c", mark, answer);
        (void)std::fflush(stdout);
        if (abandoned)
            return kAbandoned;
    }
    return 0;
}

int sendBlocks(TransferLine& line, const ImageFile& image, UploadProgress& progress)
{
    unsigned char number = kFirstBlock;
    for (off_t position = 0; position < image.size(); position += kDataLength) {
        Packet packet;
        if (const int result = fillPacket(packet, number++, image, position); result != 0)
            return result;
        if (const int result = sendUntilAcknowledged(line, packet, progress); result != 0)
            return result;
        progress.repeats = 0;
        progress.acknowledgedBytes = std::min(position + off_t{kDataLength}, image.size());
    }
    return 0;
}
}  // namespace

int xymodem_send(int descriptor, const char* path, bool waitForReceiver)
{
    ImageFile image;
    UploadProgress progress;
    return xymodem_send(descriptor, path, waitForReceiver, image, progress, -1);
}

int xymodem_send(int descriptor, const char* path, bool waitForReceiver, ImageFile& image,
                 UploadProgress& progress, int cancelDescriptor)
{
    if (const int result = image.isOpen() ? 0 : image.open(path); result != 0) {
        errno = -result;
        std::perror("open");
        return result;
    }
    progress.begin(image.size());
    TransferLine line(descriptor, progress, cancelDescriptor);
    if (waitForReceiver) {
        if (const int result = waitForReceiverPing(line); result != 0)
            return result;
    }
    BRISCA_DEBUG(logNode, "Sending %s ", printable(path).c_str());
    if (const int result = sendBlocks(line, image, progress); result != 0)
        return result;
    return line.send({&kEndOfTransfer, 1});
}

int xymodem_cancel(int descriptor, std::string& said, int quietMs, UploadProgress& progress,
                   int cancelDescriptor)
{
    TransferLine line(descriptor, progress, cancelDescriptor, quietMs);
    int result = line.send(std::array{kCancel, kCancel});
    const auto end = UploadProgress::Clock::now() + kCancelLimit;
    while (result == 0 && said.size() < kMaxCancelText && UploadProgress::Clock::now() < end) {
        unsigned char byte = 0;
        result = line.receive(byte);
        if (result == 0)
            said += static_cast<char>(byte);
    }
    return result == -ETIMEDOUT ? 0 : result;
}
