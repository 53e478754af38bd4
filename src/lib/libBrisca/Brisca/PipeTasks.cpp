#include "PipeTasks.h"

#include "BTP_Core.h"
#include "BridgePipes.h"
#include "GBSSlave.h"
#include "GOS.h"
#include "facade/Log.h"
#include "facade/LogTable.h"

#include <algorithm>

BRISCA_LOG_NODE(logNode, "Brisca");

namespace {
constexpr unsigned kPollPeriodMs = 10;
constexpr unsigned kReadTimeoutSeconds = 10;
constexpr int kDropsPerPoll = 100;
constexpr int kDumpedBytesPerLine = 20;
static_assert(kRequestBufferSize >= kBtpMessageLength + kBtpSlotCapacity,
              "a read may deliver a whole frame more than it asked for");
static_assert(kAnswerLengthSize + kMaxAnswerSize <= kBtpMessageLength, "the largest answer is one message");

/// The link on which a phone wrote last. A phone whose connection event was lost is known by its writes
/// alone.
std::uint32_t s_writtenLink = 0;  // the event task alone

/// Lines of 20 bytes. Every line after the first starts behind its own end and so shows none: part of the
/// log's format.
template <class LogLine>
void dumpMessage(std::span<const std::uint8_t> bytes, LogLine logLine)
{
    if (!logNode->passes(LogLevel::Trace))
        return;
    char text[kLogTableSize];
    const auto dump = [&](int end, int start) {
        logLine(log_table2str_impl(bytes.data(), end, start, text, sizeof text, kLogTableHexByte));
    };
    int offset = 0;
    int remaining = static_cast<int>(bytes.size());
    for (; remaining > kDumpedBytesPerLine; remaining -= kDumpedBytesPerLine) {
        dump(kDumpedBytesPerLine, offset);
        offset += kDumpedBytesPerLine;
    }
    dump(remaining, offset);
}

// ---- Phone to application ---------------------------------------------------------------------------------

/// Passes on what waits in the transport as one frame: @p available bytes whatever the read delivers.
void forwardRequest(BridgePipes& pipes, std::uint32_t link, std::size_t available)
{
    const std::span<std::uint8_t> buffer = pipes.payload();
    const std::size_t count = std::min<std::size_t>(
        BTP_ReceiveOnLink(link, buffer.data(), static_cast<unsigned>(available), kReadTimeoutSeconds),
        buffer.size());
    BRISCA_DEBUG(logNode, "Read %d bytes from BTP layer", static_cast<int>(count));
    // Bytes that the transport lost are zero, never those of an earlier request.
    if (count < available)
        std::ranges::fill(buffer.subspan(count, available - count), std::uint8_t{0});

    const PipeFrameWriter::Written written = pipes.send(available);
    char text[kLogTableSize];
    BRISCA_TRACE(logNode, "BTP -> COAP Header = %s",
                 log_table2str_impl(pipes.sentHeader().data(), static_cast<int>(kRequestHeaderSize), 0, text,
                                    sizeof text, kLogTableHexByte));
    BRISCA_DEBUG(logNode, "Send %d bytes to Coap", written.header);
    BRISCA_DEBUG(logNode, "Send %d bytes to Coap", written.payload);
    dumpMessage(buffer.first(available),
                [](const char* line) { BRISCA_TRACE(logNode, "BTP -> COAP %s", line); });
}

void forwardNextRequest(BridgePipes& pipes)
{
    if (!pipes.beginRequest())
        return;
    const std::uint32_t link = BTP_RxLink();
    const std::size_t available = std::min<std::size_t>(BTP_RxBytesAvailable(), kBtpMessageLength);
    if (available != 0 && link == BTP_RxLink())  // else they may be the next phone's
        forwardRequest(pipes, link, available);
}

// ---- Application to phone ---------------------------------------------------------------------------------

void traceHeader(const PipeFrameReader& frame)
{
    char text[kLogTableSize];
    BRISCA_TRACE(logNode, "CoAP -> BTP Header %s",
                 log_table2str_impl(frame.header().data(), static_cast<int>(kAnswerHeaderSize), 0, text,
                                    sizeof text, kLogTableHexByte));
    BRISCA_TRACE(logNode, "COAP-> BTP Frame length %d", static_cast<int>(frame.length()));
}

void forwardAnswer(std::uint32_t link, std::span<const std::uint8_t> message)
{
    const int status = BTP_IO_WriteOnLink(link, message.data(), static_cast<unsigned>(message.size()));
    if (status == kBtpSuccess)
        dumpMessage(message, [](const char* line) { BRISCA_TRACE(logNode, "CoAP -> BTP %s", line); });
    else
        BRISCA_TRACE(
            logNode,
            "Failed to write data to the BTP layer (1 = SUCCESS, -1 = I/O Error, -2 = Invalid Length). "
            "Error = %d",
            status);
}

/// Takes the next frame; those that nobody awaits go many at a time, so that the next phone does not wait for
/// them, but not all at once: an application that never stops writing must not keep a processor busy.
PipeFrameReader::Status takeAnswer(BridgePipes& pipes, unsigned& dropped)
{
    for (int count = 0; count < kDropsPerPoll; ++count) {
        const PipeFrameReader::Status status = pipes.receive();
        if (status != PipeFrameReader::Status::Dropped)
            return status;
        ++dropped;
    }
    return PipeFrameReader::Status::Dropped;
}

void reportDropped(unsigned& dropped)
{
    if (dropped != 0)
        BRISCA_DEBUG(logNode, "Dropped %u answers that no phone awaits", dropped);
    dropped = 0;
}

void forwardNextAnswer(BridgePipes& pipes, unsigned& dropped)
{
    const PipeFrameReader::Status status = takeAnswer(pipes, dropped);
    if (status == PipeFrameReader::Status::Dropped)
        return;
    reportDropped(dropped);
    if (status == PipeFrameReader::Status::Nothing)
        return;
    const PipeFrameReader& frame = pipes.received();
    traceHeader(frame);
    switch (status) {
        case PipeFrameReader::Status::Nothing:
        case PipeFrameReader::Status::Dropped:
            break;
        case PipeFrameReader::Status::InvalidLength:
            BRISCA_ERROR(logNode, "%d is not a valid frame length", static_cast<int>(frame.length()));
            break;
        case PipeFrameReader::Status::PayloadMissing:
            BRISCA_DEBUG(logNode, "Frame length is %d but pipe is empty", static_cast<int>(frame.length()));
            break;
        case PipeFrameReader::Status::Frame:
            forwardAnswer(pipes.receivedLink(), frame.message());
            break;
    }
}
}  // namespace

std::uint16_t PipeTasks::GATTWriteCallback(std::uint16_t /*characteristic*/, std::uint8_t length,
                                           std::uint8_t* pData)
{
    if (pData == nullptr) {
        BRISCA_DEBUG(logNode, "[GATTWriteCallback] pData is null");
        return 0;
    }
    char text[kLogTableSize];
    BRISCA_TRACE(logNode, "GBS -> BTP data length = %d", length);
    BRISCA_TRACE(logNode, "GBS -> BTP %s",
                 log_table2str_impl(pData, length, 0, text, sizeof text, kLogTableHexByte));
    s_writtenLink = GBSSlave_GetLinkNumber();
    followLink();
    call_back_BTP_Receive(pData, length);
    return 1;
}

void PipeTasks::followLink()
{
    const std::uint32_t link = GBSSlave_GetLinkNumber();
    BridgePipes::instance().follow(link, link == s_writtenLink || GBSSlave_PeekState() == GBS_LINK_CONNECTED);
}

void PipeTasks::Task_BTP_to_CoAP()
{
    BridgePipes& pipes = BridgePipes::instance();
    BTP_Wait_Until_Data_Received(0);
    while (true) {
        forwardNextRequest(pipes);
        GOS_WaitForDelay(kPollPeriodMs);
    }
}

void PipeTasks::Task_Coap_to_BTP()
{
    BridgePipes& pipes = BridgePipes::instance();
    unsigned dropped = 0;
    while (true) {
        GOS_WaitForDelay(kPollPeriodMs);
        forwardNextAnswer(pipes, dropped);
    }
}
