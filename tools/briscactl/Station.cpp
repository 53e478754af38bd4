#include "Station.h"

#include "CommandLine.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <climits>

namespace {
using namespace std::chrono_literals;

constexpr auto kBootLimit = 10s;  // of the chip's firmware, which takes less than one
constexpr const char* kTimeOut = "no answer in time: the service or its chip hangs, see journalctl -u brisca";
constexpr const char* kGone = "the service has ended meanwhile: see systemctl status brisca";

QDBusConnection connect(const QString& address)
{
    QDBusConnection bus = address.isEmpty() ? QDBusConnection::systemBus()
                                            : QDBusConnection::connectToBus(address, "briscactl");
    if (!bus.isConnected())
        throw Failure{Exit::NoService, "no bus: " + bus.lastError().message() + "; is dbus.service running?"};
    return bus;
}

/// What an operator does next to get from one state to where a verb works.
QString wayTo(BriscaState from, BriscaState to)
{
    if (to == BOOTLOADER && from == FIRMWARE)
        return "briscactl disable, then briscactl restart";
    if (to == BOOTLOADER || from == ERROR)
        return "briscactl restart";
    if (to == FIRMWARE)
        return from == BOOTLOADER ? "briscactl start" : "briscactl enable";
    return from == BOOTLOADER ? "briscactl start" : "briscactl disable";
}
}  // namespace

QString name(BriscaState state)
{
    return QString::fromStdString(to_string(state));
}

Station::Station(const Command& command)
    : m_bus(connect(command.busAddress)), m_deadline(command.deadline), m_proxy(kService, "/", m_bus)
{
}

bool Station::isThere() const
{
    return m_bus.interface()->isServiceRegistered(kService).value();
}

uint Station::user() const
{
    return m_bus.interface()->serviceUid(kService).value();
}

void Station::prepare()
{
    if (!isThere())
        throw Failure{Exit::NoService,
                      "the service is not on the bus: systemctl start brisca, then "
                      "systemctl status brisca"};
    m_owner = m_bus.interface()->serviceOwner(kService).value();
    m_proxy.setTimeout(m_deadline.isForever()
                           ? INT_MAX
                           : static_cast<int>(std::clamp<qint64>(m_deadline.remainingTime(), 1, INT_MAX)));
}

// Both a time-out and a service that ends meanwhile are "no reply" to the bus; the one leaves the owner of
// the name as it was.
void Station::fail(const QDBusError& error) const
{
    switch (error.type()) {
        case QDBusError::AccessDenied:
            throw Failure{Exit::AccessDenied,
                          "access denied: be root or a member of the group brisca-clients"};
        case QDBusError::NoReply:
        case QDBusError::Timeout:
        case QDBusError::TimedOut:
            if (m_bus.interface()->serviceOwner(kService).value() == m_owner)
                throw Failure{Exit::TimeOut, kTimeOut};
            [[fallthrough]];
        case QDBusError::ServiceUnknown:
        case QDBusError::Disconnected:
            throw Failure{Exit::NoService, kGone};
        default:
            throw Failure{Exit::Failed, error.name() + ": " + error.message().simplified()};
    }
}

BriscaState Station::state()
{
    return static_cast<BriscaState>(ask([](BriscaProxy& proxy) { return proxy.getBriscaState(); }));
}

BriscaState Station::send(void (BriscaProxy::*request)())
{
    prepare();
    (m_proxy.*request)();
    return state();  // served behind the request
}

BriscaState Station::sendAndWait(void (BriscaProxy::*request)())
{
    bool isOnAir = false;
    const auto connection =
        QObject::connect(&m_proxy, &BriscaProxy::bleIsStarted, [&isOnAir] { isOnAir = true; });
    const BriscaState reached = send(request);
    if (reached == FIRMWARE && !waitUntil([&isOnAir] { return isOnAir; }, QDeadlineTimer(kBootLimit)))
        throw Failure{Exit::Failed,
                      "in FIRMWARE, but the chip has not reported its start; see "
                      "journalctl -u brisca"};
    QObject::disconnect(connection);
    return reached;
}

void Station::require(BriscaState wanted)
{
    const BriscaState current = state();
    if (current != wanted)
        throw Failure{Exit::WrongState, QString("the service is in %1, this works in %2: %3")
                                            .arg(name(current), name(wanted), wayTo(current, wanted))};
}

bool Station::waitUntil(const std::function<bool()>& holds, const QDeadlineTimer& limit)
{
    QTimer tick;
    tick.start(100ms);
    while (!holds()) {
        if (limit.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

void Station::waitUntil(const std::function<bool()>& holds) const
{
    if (!waitUntil(holds, m_deadline))
        throw Failure{Exit::TimeOut, kTimeOut};
}
