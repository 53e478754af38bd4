#include "Brisca.h"

#include "facade/Log.h"

BRISCA_LOG_NODE(logNode, "Brisca");

std::mutex Brisca::s_identityLock;
QString Brisca::m_DeviceName;
std::atomic<Brisca::EventsCallback> Brisca::m_AppEventsCallback{nullptr};

Brisca::Brisca()
    : m_txPipePath(QStringLiteral("/tmp/ttyBleTx")), m_rxPipePath(QStringLiteral("/tmp/ttyBleRx"))
{
}

Brisca::~Brisca() = default;

QString Brisca::GetDeviceName()
{
    const std::lock_guard lock(s_identityLock);
    return m_DeviceName;
}

Brisca::EventsCallback Brisca::GetEventsCallback()
{
    return m_AppEventsCallback;
}
