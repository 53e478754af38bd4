#include "SystemdWatchdog.h"

#include <systemd/sd-daemon.h>

#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdint>

void feedSystemdWatchdog(QObject* parent)
{
    std::uint64_t intervalUs = 0;
    if (sd_watchdog_enabled(0, &intervalUs) <= 0)
        return;
    auto* const timer = new QTimer(parent);
    QObject::connect(timer, &QTimer::timeout, [] { sd_notify(0, "WATCHDOG=1"); });
    // Bounded, because the interval comes from the environment.
    constexpr std::uint64_t kMaxPeriodMs = 3'600'000;
    const std::uint64_t periodMs = std::clamp<std::uint64_t>(intervalUs / 2000, 1, kMaxPeriodMs);
    timer->start(std::chrono::milliseconds(periodMs));
}
