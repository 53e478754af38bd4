#pragma once

#include <QObject>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// The one place that talks to systemd, which need not be there. Main thread, but for stopping().
///
/// Its watchdog is fed by the events that the main thread handles, so only while the event loop turns, and
/// also in the middle of a burst of requests; and only while every vital shows signs of life.
class Systemd : public QObject
{
public:
    /// What works beside the event loop and may hang by itself.
    struct Vital
    {
        const char* name;
        std::chrono::seconds limit;  ///< of the time without a sign of life
        /// That time; nothing while there is nothing to show one.
        std::function<std::optional<std::chrono::milliseconds>()> silence;
    };

    explicit Systemd(std::vector<Vital> vitals);

    /// Tells that the service is ready, with a WARN line when there is nobody to be told, and feeds the
    /// watchdog from now on, if systemd wants that: every quarter of its limit, and up to once a second while
    /// events come. Needs the application object.
    void ready();
    /// Tells what "systemctl status" is to show: one line of UTF-8.
    static void status(const std::string& text);
    /// Tells that the service is about to end. Any thread.
    static void stopping();

protected:
    /// Sees every event of the main thread before its receiver; lets all of them pass.
    bool eventFilter(QObject* receiver, QEvent* event) override;

private:
    using Clock = std::chrono::steady_clock;

    [[nodiscard]] bool allVital();

    const std::vector<Vital> m_vitals;
    std::chrono::milliseconds m_pause{0};  // the least time from one feeding to the next
    Clock::time_point m_nextFeeding;
    bool m_isVital = true;
};
