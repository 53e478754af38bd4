#pragma once

#include <QDBusConnection>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>

/// What systemd knows of the unit in which the service runs. Without systemd, or for a service that runs in
/// no unit of its own, every answer is empty.
class Unit
{
public:
    /// @param service the service's name on the bus
    Unit(const QDBusConnection& bus, const QString& service);

    /// What the service tells about itself, as "systemctl status" shows it.
    [[nodiscard]] std::optional<QString> statusText() const;
    /// Directories that the service does not see as everybody does.
    [[nodiscard]] QStringList hiddenDirectories() const;

private:
    [[nodiscard]] QVariant property(const char* name) const;

    QDBusConnection m_bus;
    QString m_path;  // empty without systemd
};
