#pragma once

#include "NamedPipe.h"
#include "PipeFrame.h"

#include <mutex>
#include <span>

/// The two pipes between the bridge and the CoAP application, each with its reader or writer task in the
/// bridge and a lock that keeps a new start from emptying the pipe in the middle of a frame.
class BridgePipes
{
public:
    /// The pipes of the process.
    static BridgePipes& instance();

    /// Makes and opens both pipes and empties them, so that half a frame of an application that died cannot
    /// misalign its successor. What is open already is kept. Main thread, also while the tasks run.
    /// @param txPath the application writes here, the bridge reads
    /// @param rxPath the bridge writes here, the application reads
    /// @return false, with a log line, when a pipe cannot be used
    [[nodiscard]] bool create(const char* txPath, const char* rxPath);

    /// Follows the link of the phone. What waits in the application's pipe when a link begins or ends is
    /// dropped, and while there is none every frame is: an answer comes after the request that it answers, so
    /// none of that is for the phone that comes next. A frame that the application has half written by then
    /// is dropped when it is complete. The event task, before it hands a phone's fragment on.
    /// @param link as GBSSlave_GetLinkNumber
    /// @param awaited whether a phone is there to await answers
    void follow(std::uint32_t link, bool awaited);

    /// Takes one frame of the application; see PipeFrameReader. Only the task "CoAPtoBTP".
    [[nodiscard]] PipeFrameReader::Status receive();
    /// The link to which the frame that receive() took belongs. Only the task "CoAPtoBTP".
    [[nodiscard]] std::uint32_t receivedLink() const { return m_receivedLink; }
    /// The frame that receive() took.
    [[nodiscard]] const PipeFrameReader& received() const { return m_reader; }

    /// Where the payload of the next frame for the application goes. Only the task "BTPtoCoAP".
    [[nodiscard]] std::span<std::uint8_t> payload() { return m_writer.payload(); }
    /// Sends @p length bytes of payload(); see PipeFrameWriter. A create() since beginRequest() loses them:
    /// they are those of an earlier start. Only the task "BTPtoCoAP".
    PipeFrameWriter::Written send(std::size_t length);
    /// Sends what is left of a frame. Only the task "BTPtoCoAP", before it looks for another one.
    /// @return true when nothing is left, and the next frame may be sent
    [[nodiscard]] bool beginRequest();
    /// The header of the last frame sent.
    [[nodiscard]] std::span<const std::uint8_t> sentHeader() const { return m_writer.header(); }

private:
    void drain();

    // Named after what the application does with them.
    NamedPipe _writeHandle{{"Tx", "tx", "write"}};  // guarded by m_txLock once the tasks run
    NamedPipe _readHandle{{"Rx", "rx", "read"}};    // guarded by m_rxLock once the tasks run
    PipeFrameReader m_reader;                       // its place in the stream is guarded by m_txLock
    PipeFrameWriter m_writer;                       // its place in the stream is guarded by m_rxLock
    std::uint32_t m_link = 0;                       // guarded by m_txLock
    bool m_isAwaited = false;                       // guarded by m_txLock
    std::uint32_t m_receivedLink = 0;               // the task "CoAPtoBTP" alone
    bool m_hasBegunRequest = false;                 // guarded by m_rxLock
    std::mutex m_txLock;
    std::mutex m_rxLock;
};
