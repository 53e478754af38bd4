#include "Unit.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>

namespace {
constexpr const char* kSystemd = "org.freedesktop.systemd1";
constexpr int kLimitMs = 2000;  // it is asked beside what the operator waits for
}  // namespace

Unit::Unit(const QDBusConnection& bus, const QString& service) : m_bus(bus)
{
    const QDBusReply<uint> process = m_bus.interface()->servicePid(service);
    if (!process.isValid() || !m_bus.interface()->isServiceRegistered(kSystemd).value())
        return;
    // Not by the unit's name: a service that somebody runs in a shell has no status to show.
    QDBusMessage question = QDBusMessage::createMethodCall(
        kSystemd, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager", "GetUnitByPID");
    question << process.value();
    const QDBusReply<QDBusObjectPath> unit = m_bus.call(question, QDBus::Block, kLimitMs);
    if (unit.isValid())
        m_path = unit.value().path();
}

QVariant Unit::property(const char* name) const
{
    if (m_path.isEmpty())
        return {};
    QDBusMessage question =
        QDBusMessage::createMethodCall(kSystemd, m_path, "org.freedesktop.DBus.Properties", "Get");
    question << "org.freedesktop.systemd1.Service" << name;
    const QDBusReply<QVariant> answer = m_bus.call(question, QDBus::Block, kLimitMs);
    return answer.isValid() ? answer.value() : QVariant();
}

std::optional<QString> Unit::statusText() const
{
    const QString text = property("StatusText").toString();
    return text.isEmpty() ? std::nullopt : std::optional(text);
}

QStringList Unit::hiddenDirectories() const
{
    QStringList hidden;
    const QString home = property("ProtectHome").toString();
    if (home == QLatin1String("yes") || home == QLatin1String("tmpfs"))
        hidden << "/home"
               << "/root"
               << "/run/user";
    if (property("PrivateTmp").toBool())
        hidden << "/tmp"
               << "/var/tmp";
    return hidden;
}
