#include "BridgePipes.h"

#include "GBSSlave.h"
#include "facade/Log.h"

BRISCA_LOG_NODE(logNode, "Brisca");

BridgePipes& BridgePipes::instance()
{
    // Never destroyed: the tasks that use it run until the process ends.
    static BridgePipes& pipes = *new BridgePipes;
    return pipes;
}

bool BridgePipes::create(const char* txPath, const char* rxPath)
{
    BRISCA_DEBUG(logNode, "Create pipes");
    const std::scoped_lock lock(m_txLock, m_rxLock);
    if (!_writeHandle.make(txPath) || !_readHandle.make(rxPath) || !_writeHandle.open(txPath) ||
        !_readHandle.open(rxPath))
        return false;
    drain();
    return true;
}

void BridgePipes::drain()
{
    m_reader.reset();
    m_writer.reset();
    m_hasBegunRequest = false;
    const std::size_t answers = _writeHandle.drain();
    const std::size_t requests = _readHandle.drain();
    if (answers + requests != 0)
        BRISCA_INFO(logNode, "Discarded %zu bytes from and %zu bytes for an earlier application", answers,
                    requests);
}

void BridgePipes::follow(std::uint32_t link, bool awaited)
{
    const std::lock_guard lock(m_txLock);
    if (link == m_link && awaited == m_isAwaited)
        return;
    m_link = link;
    m_isAwaited = awaited;
    m_reader.disown(_writeHandle.waiting());
}

PipeFrameReader::Status BridgePipes::receive()
{
    const std::lock_guard lock(m_txLock);
    m_receivedLink = m_link;
    // The event task may be busy for long with what follows the end of a link, and tells of it afterwards.
    const bool isOver = m_link != GBSSlave_GetLinkNumber();
    return m_reader.poll(_writeHandle, m_isAwaited && !isOver);
}

PipeFrameWriter::Written BridgePipes::send(std::size_t length)
{
    const std::lock_guard lock(m_rxLock);
    return m_hasBegunRequest ? m_writer.write(_readHandle, length) : PipeFrameWriter::Written{-1, -1};
}

bool BridgePipes::beginRequest()
{
    const std::lock_guard lock(m_rxLock);
    m_hasBegunRequest = m_writer.finish(_readHandle);
    return m_hasBegunRequest;
}
