#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>

/// Keeps an object with its adaptors at "/" of the system bus, under the service's name. A bus daemon that
/// dies takes the connection along; the object is then offered to the next one. Main thread only.
class SystemBus : public QObject
{
    Q_OBJECT

public:
    /// Between two attempts to reach a new bus daemon.
    static constexpr std::chrono::seconds kRetryPeriod{5};

    /// @param exported becomes this object's parent
    explicit SystemBus(QObject* exported);
    ~SystemBus() override = default;

    /// Connects, exports the object and takes the name. A bus or a name that cannot be had is no error and no
    /// reason to try again: the service then runs unreachable.
    void open();

private Q_SLOTS:
    void onDisconnected();
    void retry();

private:
    [[nodiscard]] QDBusConnection current() const;
    /// @return false when the name is not this service's or the daemon is gone again
    bool offer(QDBusConnection bus);
    void forget();

    QTimer m_retry;
    /// Qt's name of the connection that took the place of the first; empty for the first.
    QString m_connection;
    unsigned m_attempts = 0;
    bool m_nameRefused = false;  // another instance serves the station
};
