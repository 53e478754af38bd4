#include "SystemBus.h"

#include "facade/Log.h"

#include <thread>

BRISCA_LOG_NODE(logNode, "BriscaService.comm.BriscaDbus");

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
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &SystemBus::retry);
}

void SystemBus::open()
{
    const QDBusConnection bus = openFirst();
    const bool isReached = bus.isConnected();
    const bool isOffered = offer(bus);
    m_nameRefused = !isOffered && bus.isConnected();
    if (isReached && !bus.isConnected())
        m_retry.start(kRetryPeriod);
}

QDBusConnection SystemBus::current() const
{
    return m_connection.isEmpty() ? QDBusConnection::systemBus() : QDBusConnection(m_connection);
}

bool SystemBus::offer(QDBusConnection bus)
{
    // Made up by the bus library itself when the daemon is gone. Before anything else: a daemon that dies
    // meanwhile must be noticed.
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                SLOT(onDisconnected()));
    bus.registerObject(kPath, parent(), QDBusConnection::ExportAdaptors);
    return bus.registerService(kService) && bus.isConnected();
}

void SystemBus::forget()
{
    if (m_connection.isEmpty())
        QDBusConnection::systemBus().unregisterObject(kPath);  // Qt keeps this one until the process ends
    else
        QDBusConnection::disconnectFromBus(m_connection);
}

void SystemBus::onDisconnected()
{
    if (current().isConnected())
        return;  // told late, of an earlier connection
    BRISCA_WARN(logNode, "Connection to the system bus lost");
    if (!m_nameRefused)
        m_retry.start(kRetryPeriod);
}

// A daemon that is not there refuses at once. One that takes the connection and then says nothing holds the
// event loop for the bus library's time-out of 25 s, and again when the name is asked for; the loop turns in
// between, so that systemd's watchdog is fed.
void SystemBus::retry()
{
    using namespace std::chrono_literals;
    if (!current().isConnected()) {
        forget();
        m_connection = QStringLiteral("brisca-%1").arg(++m_attempts);
        QDBusConnection::connectToBus(QDBusConnection::SystemBus, m_connection);
        m_retry.start(current().isConnected() ? 0ms : kRetryPeriod);
    } else if (offer(current())) {
        BRISCA_NOTIC(logNode, "Connected to the system bus again");
    } else {
        forget();
        m_retry.start(kRetryPeriod);
    }
}
