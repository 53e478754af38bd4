#include "Systemd.h"

#include "facade/Log.h"

#include <systemd/sd-daemon.h>

#include <QCoreApplication>

#include <algorithm>
#include <cstdint>
#include <utility>

BRISCA_LOG_NODE(logNode, "BriscaService.main");

namespace {
using namespace std::chrono_literals;

/// How often the watchdog is fed while nothing happens. A quarter leaves room for the longest entry of
/// FIRMWARE and for a feeding that was left out.
std::chrono::milliseconds feedingPeriod(std::chrono::microseconds limit)
{
    // Bounded, because the limit comes from the environment.
    return std::clamp<std::chrono::milliseconds>(
        std::chrono::duration_cast<std::chrono::milliseconds>(limit / 4), 1ms, 1h);
}
}  // namespace

Systemd::Systemd(std::vector<Vital> vitals) : m_vitals(std::move(vitals)) {}

void Systemd::ready()
{
    if (sd_notify(0, "READY=1") <= 0)
        BRISCA_WARN(logNode, "Fail to notify systemd");
    std::uint64_t limitUs = 0;
    if (sd_watchdog_enabled(0, &limitUs) <= 0)
        return;
    constexpr std::uint64_t kLongestUs = std::chrono::microseconds(24h).count();
    const auto period = feedingPeriod(std::chrono::microseconds(std::min(limitUs, kLongestUs)));
    m_pause = std::min<std::chrono::milliseconds>(1s, period / 2);
    startTimer(period);  // its events pass the filter, too
    QCoreApplication::instance()->installEventFilter(this);
}

void Systemd::stopping()
{
    sd_notify(0, "STOPPING=1");
}

void Systemd::status(const std::string& text)
{
    sd_notify(0, ("STATUS=" + text).c_str());
}

bool Systemd::eventFilter(QObject* /*receiver*/, QEvent* /*event*/)
{
    const auto now = Clock::now();
    if (now >= m_nextFeeding) {
        m_nextFeeding = now + m_pause;
        if (allVital())
            sd_notify(0, "WATCHDOG=1");
    }
    return false;
}

bool Systemd::allVital()
{
    const auto dead = std::ranges::find_if(
        m_vitals, [](const Vital& vital) { return vital.silence().value_or(0ms) >= vital.limit; });
    const bool isVital = dead == m_vitals.end();
    if (std::exchange(m_isVital, isVital) && !isVital)
        BRISCA_WARN(logNode, "No sign of life of the %s for %d s, systemd's watchdog is not fed", dead->name,
                    static_cast<int>(dead->limit.count()));
    return isVital;
}
