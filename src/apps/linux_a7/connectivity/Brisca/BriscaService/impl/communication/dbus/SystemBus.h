#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <future>

/// Keeps an object with its adaptors at "/" of the system bus, under the service's name, whenever there is a
/// bus that gives it the name. Main thread only.
///
/// A bus daemon that takes a connection and says nothing blocks whoever connects or asks for the name,
/// without any limit that could be relied on. So a helper thread does both, which nobody joins: the main
/// thread only looks whether it is done.
class SystemBus : public QObject
{
    Q_OBJECT

public:
    /// Between two attempts to get the bus or the name.
    static constexpr std::chrono::seconds kRetryPeriod{5};
    /// How long the start of the service waits for both.
    static constexpr std::chrono::seconds kStartLimit{5};

    /// @param exported outlives this object; its signals are blocked while there is no bus for them
    explicit SystemBus(QObject& exported);

    /// Connects, exports the object and takes the name. What cannot be had, or not within kStartLimit, is no
    /// error; the event loop goes on trying without a word and tells its success.
    void open();

private Q_SLOTS:
    void onDisconnected();
    void look();

private:
    /// What comes next; the first two are for the helper thread.
    enum class Step { Connect, Offer, Serve };

    void begin();
    void conclude(bool success);
    void exportObject();
    void withdraw();

    QObject& m_exported;
    QTimer m_timer;
    Step m_step = Step::Connect;
    std::future<bool> m_helper;  // valid while the helper thread is at work, or its result not yet taken
    QDBusConnection m_bus;       // of the steps after Connect
};
