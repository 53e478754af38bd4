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

    /// Takes one frame of the application; see PipeFrameReader. Only the task "CoAPtoBTP".
    [[nodiscard]] PipeFrameReader::Status receive();
    /// The frame that receive() took.
    [[nodiscard]] const PipeFrameReader& received() const { return m_reader; }

    /// Where the payload of the next frame for the application goes. Only the task "BTPtoCoAP".
    [[nodiscard]] std::span<std::uint8_t> payload() { return m_writer.payload(); }
    /// Sends @p length bytes of payload(); see PipeFrameWriter. Only the task "BTPtoCoAP".
    PipeFrameWriter::Written send(std::size_t length);
    /// Sends what is left of a frame. Only the task "BTPtoCoAP".
    /// @return true when nothing is left
    [[nodiscard]] bool finishSending();
    /// The header of the last frame sent.
    [[nodiscard]] std::span<const std::uint8_t> sentHeader() const { return m_writer.header(); }

private:
    void drain();

    // Named after what the application does with them.
    NamedPipe _writeHandle{{"Tx", "tx", "write"}};  // guarded by m_txLock once the tasks run
    NamedPipe _readHandle{{"Rx", "rx", "read"}};    // guarded by m_rxLock once the tasks run
    PipeFrameReader m_reader;                       // its place in the stream is guarded by m_txLock
    PipeFrameWriter m_writer;                       // its place in the stream is guarded by m_rxLock
    std::mutex m_txLock;
    std::mutex m_rxLock;
};
