#include "SystemBus.h"

#include "facade/Log.h"

#include <thread>

BRISCA_LOG_NODE(logNode, "BriscaService.comm.SystemBus");

namespace {
const QString kPath = QStringLiteral("/");
const QString kService = QStringLiteral("org.voltra.brisca");

/// A connection that the main thread opens holds requests back until the event loop runs and then delivers
/// newer ones before them. One that another thread opens keeps the order; its requests wait for the event
/// loop, too, because they are served on the main thread.
QDBusConnection openFirst()
{
    std::thread([] { QDBusConnection::systemBus(); }).join();
    return QDBusConnection::systemBus();
}
}  // namespace

SystemBus::SystemBus(QObject* exported) : QObject(exported)
{
    m_retry.setInterval(kRetryPeriod);
    connect(&m_retry, &QTimer::timeout, this, &SystemBus::retry);
}

void SystemBus::open()
{
    offer(openFirst());
}

void SystemBus::offer(QDBusConnection bus)
{
    bus.registerObject(kPath, parent(), QDBusConnection::ExportAdaptors);
    bus.registerService(kService);
    // Made up by the bus library itself when the daemon is gone (D-Bus Specification,
    // org.freedesktop.DBus.Local).
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                SLOT(onDisconnected()));
}

void SystemBus::onDisconnected()
{
    BRISCA_WARN(logNode, "Connection to the system bus lost");
    if (m_connection.isEmpty())
        QDBusConnection::systemBus().unregisterObject(kPath);  // Qt keeps this one until the process ends
    else
        QDBusConnection::disconnectFromBus(m_connection);
    m_retry.start();
}

// A daemon that is not there refuses at once; one that takes the connection and then says nothing holds the
// event loop for the bus library's time-out of 25 s.
void SystemBus::retry()
{
    m_connection = QStringLiteral("brisca-%1").arg(++m_attempts);
    const QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, m_connection);
    if (!bus.isConnected()) {
        QDBusConnection::disconnectFromBus(m_connection);
        return;
    }
    m_retry.stop();
    offer(bus);
    BRISCA_NOTIC(logNode, "Connected to the system bus again");
}
