#include "SystemBus.h"

#include "facade/Log.h"

#include <QString>

#include <initializer_list>
#include <thread>
#include <utility>

BRISCA_LOG_NODE(logNode, "BriscaService.comm.BriscaDbus");

namespace {
using namespace std::chrono_literals;

constexpr auto kLookPeriod = 100ms;
const QString kConnection = QStringLiteral("brisca");  // Qt's name for it
const QString kPath = QStringLiteral("/");
const QString kService = QStringLiteral("org.voltra.brisca");
// Of the signal that the bus library itself makes up when the daemon is gone.
const QString kLocalPath = QStringLiteral("/org/freedesktop/DBus/Local");
const QString kLocalInterface = QStringLiteral("org.freedesktop.DBus.Local");
const QString kDisconnected = QStringLiteral("Disconnected");

const QDBusConnection kNoBus{QString()};

// On the helper thread also because a connection that the main thread opens holds requests back until the
// event loop runs and then delivers newer ones before them. One that another thread opens keeps the order.
bool connectAnew()
{
    QDBusConnection::disconnectFromBus(kConnection);
    return QDBusConnection::connectToBus(QDBusConnection::SystemBus, kConnection).isConnected();
}

bool takeName(QDBusConnection bus)
{
    return bus.registerService(kService);
}
}  // namespace

SystemBus::SystemBus(QObject& exported) : m_exported(exported), m_bus(kNoBus)
{
    connect(&m_timer, &QTimer::timeout, this, &SystemBus::look);
}

void SystemBus::open()
{
    const auto end = std::chrono::steady_clock::now() + kStartLimit;
    begin();
    while (m_helper.valid() && m_helper.wait_until(end) == std::future_status::ready)
        conclude(m_helper.get());
}

void SystemBus::begin()
{
    if (m_step == Step::Connect)
        withdraw();
    std::packaged_task<bool()> task(
        [step = m_step, bus = m_bus] { return step == Step::Connect ? connectAnew() : takeName(bus); });
    m_helper = task.get_future();
    std::thread(std::move(task)).detach();
    m_timer.start(kLookPeriod);
}

void SystemBus::look()
{
    if (!m_helper.valid())
        begin();
    else if (m_helper.wait_for(0s) == std::future_status::ready)
        conclude(m_helper.get());
    if (m_step == Step::Serve)
        BRISCA_NOTIC(logNode, "Connected to the system bus as %s", kService.toLatin1().constData());
}

void SystemBus::conclude(bool success)
{
    m_timer.start(kRetryPeriod);
    switch (m_step) {
        case Step::Connect:
            if (!success)
                break;
            exportObject();
            m_step = Step::Offer;
            begin();
            break;
        case Step::Offer:
            if (!m_bus.isConnected()) {
                m_step = Step::Connect;
            } else if (success) {
                m_step = Step::Serve;
                m_timer.stop();
            }
            break;
        case Step::Serve:
            break;
    }
}

void SystemBus::exportObject()
{
    m_bus = QDBusConnection(kConnection);
    // Before anything else: a daemon that dies meanwhile must be noticed.
    m_bus.connect(QString(), kLocalPath, kLocalInterface, kDisconnected, this, SLOT(onDisconnected()));
    m_bus.registerObject(kPath, &m_exported, QDBusConnection::ExportAdaptors);
    m_exported.blockSignals(false);
}

// Qt deletes the connection on a thread of its own, which must find nothing of this thread's objects in it.
void SystemBus::withdraw()
{
    m_exported.blockSignals(true);
    m_bus.unregisterObject(kPath);
    m_bus.disconnect(QString(), kLocalPath, kLocalInterface, kDisconnected, this, SLOT(onDisconnected()));
    for (const QObject* const watched : std::initializer_list<const QObject*>{&m_exported, this})
        watched->disconnect(SIGNAL(destroyed(QObject*)));
    m_bus = kNoBus;
}

void SystemBus::onDisconnected()
{
    if (m_step != Step::Serve || m_bus.isConnected())
        return;  // the helper will see it, or it is told late, of an earlier connection
    BRISCA_WARN(logNode, "Connection to the system bus lost");
    m_step = Step::Connect;
    m_timer.start(kRetryPeriod);
}
