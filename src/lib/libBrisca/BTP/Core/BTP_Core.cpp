#include "BTP_Core.h"

#include "BTP_Internal.h"
#include "GBSSlave.h"
#include "GOS.h"
#include "GosMutex.h"
#include "facade/Log.h"
#include "facade/LogTable.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>

BRISCA_LOG_NODE(logNode, "BTP_CORE");

namespace {
constexpr unsigned kFragmentsBetweenPauses = 2;
constexpr unsigned kPauseMs = 3;
constexpr unsigned kFailurePauseMs = 200;
/// Whatever length the 8-bit length of the low-level send says, it finds so many bytes.
constexpr unsigned kSendBufferLength = 256;

constexpr GosMutex txMutex(SEM_ID_BTP_TX);

struct TransmitState
{
    // Written by the writer that holds semaphore 4, read by the manager task while that writer waits.
    std::array<std::uint8_t, kBtpMessageLength> txBuffer;
    std::uint16_t txLength;
    std::uint32_t txLink;
    std::atomic<std::uint8_t> txPending;
    // The manager task alone.
    std::uint8_t frameNumber;
    std::uint32_t transmitCount;
    std::uint32_t secondAttemptCount;
    std::uint32_t failedFragmentCount;

    std::atomic<std::uint8_t> elecSignature;
};
TransmitState state{};

/// What is left of the message that is being sent.
struct Message
{
    std::uint32_t link;
    const std::uint8_t* position;
    unsigned remaining;
    unsigned wholeLength;
    unsigned sincePause;
};

struct Fragment
{
    std::array<std::uint8_t, kSendBufferLength> bytes;
    unsigned fragmentNumber;
    unsigned payloadLength;  // as announced; may exceed what bytes holds, see announcedPayload

    [[nodiscard]] unsigned length() const { return kBtpHeaderLength + payloadLength; }
    /// The length of the low-level send is 8 bits wide.
    [[nodiscard]] std::uint8_t sentLength() const { return static_cast<std::uint8_t>(length()); }
};

constexpr unsigned ceilDivide(unsigned value, unsigned divisor)
{
    return (value + divisor - 1) / divisor;
}

/// The short piece of a frame travels first. A frame of one fragment announces the length of the whole
/// message: right up to 69 bytes, too much for the 207 longer messages that leave 1 to 69 bytes to their last
/// frame (1121 to 1189, 2241 to 2309, 3361 to 3429): part of the format. Of such a length the low 8 bits
/// reach the air, and what the frame does not fill is zero.
unsigned announcedPayload(const Message& message, unsigned frameLength, unsigned count, unsigned index)
{
    if (index > 0)
        return kBtpFragmentPayload;
    return count == 1 ? message.wholeLength : frameLength - kBtpFragmentPayload * (count - 1);
}

void fillFragment(Fragment& fragment, bool first, Message& message)
{
    const unsigned held = std::min({fragment.payloadLength, kBtpFragmentPayload, message.remaining});
    fragment.bytes[0] = btpHeader(first, state.frameNumber, fragment.fragmentNumber);
    std::memcpy(&fragment.bytes[kBtpHeaderLength], message.position, held);
    if (held < fragment.payloadLength)
        std::fill(fragment.bytes.begin() + kBtpHeaderLength + held, fragment.bytes.end(), 0);
    message.position += held;
    message.remaining -= held;
}

void logFragment(const Fragment& fragment)
{
    char text[kLogTableSize];
    BRISCA_DEBUG(logNode, "BTP -> GBS : Frame number : %d Frag number : %d Length %d", state.frameNumber,
                 fragment.fragmentNumber, fragment.payloadLength);
    BRISCA_DEBUG(logNode, "BTP->GBS Data: %s",
                 log_table2str_impl(fragment.bytes.data(),
                                    static_cast<int>(std::min(fragment.length(), kSendBufferLength)), 0, text,
                                    sizeof text, kLogTableHexByte));
    BRISCA_DEBUG(logNode, "BTP->GBS First attempt");
}

/// Whoever is connected now is not the phone that the message is for.
bool isOver(const Message& message)
{
    return message.link != GBSSlave_GetLinkNumber();
}

bool notify(const Message& message, const Fragment& fragment)
{
    const BTP_NotifyCallback send = btp::platform.notify;
    return !isOver(message) && send != nullptr &&
           send(0, kBtpCharacteristic, fragment.sentLength(), fragment.bytes.data()) == 1;
}

bool sendFragment(const Message& message, const Fragment& fragment)
{
    logFragment(fragment);
    if (notify(message, fragment))
        return true;
    BRISCA_DEBUG(logNode, "BTP->GBS Second attempt");
    ++state.secondAttemptCount;
    return notify(message, fragment);
}

void pauseAfterFragment(Message& message)
{
    if (++message.sincePause < kFragmentsBetweenPauses)
        return;
    btp::delay(kPauseMs);
    message.sincePause = 0;
}

void reportFailure(const Message& message, const Fragment& fragment)
{
    if (!isOver(message))
        btp::delay(kFailurePauseMs);
    ++state.failedFragmentCount;
    BRISCA_DEBUG(logNode, "BTP -> GBS : %d bytes fail", fragment.length());
}

bool sendFragments(Message& message)
{
    const unsigned frameLength = std::min(message.remaining, kBtpFrameLength);
    const unsigned count = ceilDivide(frameLength, kBtpFragmentPayload);
    for (unsigned index = 0; index < count; ++index) {
        Fragment fragment;
        fragment.fragmentNumber = (count - 1 - index) & 15U;
        fragment.payloadLength = announcedPayload(message, frameLength, count, index);
        fillFragment(fragment, index == 0, message);
        if (!sendFragment(message, fragment)) {
            reportFailure(message, fragment);
            return false;
        }
        pauseAfterFragment(message);
    }
    return true;
}

/// A frame uses its number up whether or not it could be sent.
bool sendFrame(Message& message)
{
    const bool sent = sendFragments(message);
    state.frameNumber = static_cast<std::uint8_t>((state.frameNumber + 1) % kBtpFrameNumbers);
    return sent;
}

/// The manager task posts the result of BTP_Transmit in the first byte; 0 also when no manager task exists.
int resultOfManager(int managerTask)
{
    std::array<char, btp::kResultMailLength> mail{};
    GOS_WaitForMail(managerTask, mail.data());
    std::uint32_t result = 0;
    for (unsigned i = 0; i < mail.size(); ++i)
        result |= std::uint32_t{static_cast<std::uint8_t>(mail[i])} << (8 * i);
    return result == 0 ? kBtpIoError : static_cast<int>(result);
}

int transmit(std::uint32_t link, const void* message, unsigned length)
{
    ++state.transmitCount;
    BRISCA_DEBUG(logNode, "BTP -> GBS : Number of bytes to transmit : %d bytes", length);
    Message rest{link, static_cast<const std::uint8_t*>(message), length, length, 0};
    while (rest.remaining > 0) {
        if (!sendFrame(rest))
            return 0;
    }
    BRISCA_DEBUG(logNode, "BTP -> GBS Transmit : %d bytes OK", length);
    return 1;
}

int writeLocked(std::uint32_t link, const void* data, unsigned length)
{
    if (length > kBtpMessageLength)
        return kBtpInvalidLength;
    if (length > 0)
        std::memcpy(state.txBuffer.data(), data, length);
    state.txLength = static_cast<std::uint16_t>(length);
    state.txLink = link;
    state.txPending = 1;
    const int managerTask = GOS_GetTaskID(btp::kManagerTask);
    GOS_SendSignal(btp::kSignalTransmit, managerTask);
    return resultOfManager(managerTask);
}
}  // namespace

btp::Platform btp::platform;

void btp::delay(unsigned milliseconds)
{
    if (const BTP_DelayCallback callback = platform.delay; callback != nullptr)
        callback(milliseconds);
}

bool btp::transmitRequested()
{
    return state.txPending != 0;
}

std::optional<int> btp::transmitWaiting()
{
    if (state.txPending.exchange(0) == 0)
        return std::nullopt;
    return transmit(state.txLink, state.txBuffer.data(), state.txLength);
}

void BTP_LowLevel_callback_Init(BTP_NotifyCallback send)
{
    BRISCA_TRACE(logNode, "Initialize BTP call back");
    btp::platform.notify = send;
}

void BTP_OS_Callback_Init(BTP_RxSignalCallback rxSignal, BTP_DelayCallback delay,
                          BTP_SemaphoreCallback semaphoreWait, BTP_SemaphoreCallback semaphoreRelease)
{
    BRISCA_TRACE(logNode, "Initialize OS related function and signal callbacks");
    btp::platform.rxSignal = rxSignal;
    btp::platform.delay = delay;
    btp::platform.semaphoreWait = semaphoreWait;
    btp::platform.semaphoreRelease = semaphoreRelease;
}

void BTP_Frame_SEMID(std::uint16_t id)
{
    BRISCA_TRACE(logNode, "Set BTP Frame Semaphore ID %d", id);
    btp::platform.frameSemaphoreId = id;
}

void BTP_Clock_Driver_Callback_Init(BTP_GetTimeCallback getTime, BTP_SubTimeCallback subTime)
{
    BRISCA_TRACE(logNode, "Initialize Clock callbask");
    btp::platform.getTime = getTime;
    btp::platform.subTime = subTime;
}

int BTP_IO_Write(const void* data, unsigned length)
{
    return BTP_IO_WriteOnLink(GBSSlave_GetLinkNumber(), data, length);
}

int BTP_IO_WriteOnLink(std::uint32_t link, const void* data, unsigned length)
{
    const std::lock_guard lock(txMutex);
    return writeLocked(link, data, length);
}

int BTP_Transmit(const void* message, unsigned length)
{
    return transmit(GBSSlave_GetLinkNumber(), message, length);
}

void setElecSignValue(unsigned value)
{
    state.elecSignature = static_cast<std::uint8_t>(value);
}

unsigned getElecSignature()
{
    return state.elecSignature;
}
