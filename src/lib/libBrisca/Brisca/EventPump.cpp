#include "EventPump.h"

#include "GBSSlave.h"
#include "LinkWatch.h"
#include "PipeTasks.h"
#include "SilenceWatch.h"
#include "facade/Log.h"

#include <algorithm>
#include <atomic>
#include <ctime>

BRISCA_LOG_NODE(logNode, "Brisca");

using std::chrono::milliseconds;

namespace {
using Clock = std::chrono::steady_clock;

constexpr unsigned kPollPeriodMs = 10;
constexpr int kReportedPeriods = 3;

std::atomic<LinkI*> s_link{nullptr};  // null while the stack is not started
std::atomic<Clock::time_point> s_startedAt{};
std::atomic<Clock::time_point> s_progress{};                // the epoch of the clock while there is none
std::atomic<Clock::duration> s_period{LinkWatch::kPeriod};  // set before the task starts
std::atomic<void (*)()> s_silenceCallback{[] {}};

/// The link that may be cared for.
LinkI* startedLink()
{
    return GBSSlave_IsLineHeld() ? s_link.load() : nullptr;
}

milliseconds since(Clock::time_point start)
{
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

void reportSilence(milliseconds silence)
{
    const std::time_t since =
        std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() - silence);
    std::tm utc = {};
    char text[sizeof "2000-01-01 00:00:00"] = "";
    (void)std::strftime(text, sizeof text, "%F %T", ::gmtime_r(&since, &utc));
    BRISCA_WARN(logNode, "The chip has answered nothing for %d s, since %s UTC",
                static_cast<int>(silence.count() / 1000), text);
}

void watchSilence()
{
    static SilenceWatch watch(EventPump::reportedSilence());
    const milliseconds silence = EventPump::chipSilence();
    const SilenceWatch::Alarm alarm = watch.tick(Clock::now(), silence);
    if (alarm == SilenceWatch::Alarm::Warn)
        reportSilence(silence);
    else if (alarm == SilenceWatch::Alarm::Reenter)
        s_silenceCallback.load()();
}
}  // namespace

void EventPump::Task_GBS2Event()
{
    BRISCA_NOTIC(logNode, "Start GBS2Event task");
    LinkWatch watch(s_period);
    while (true) {
        GBSSlave_TreatInternalEvent(kPollPeriodMs);
        PipeTasks::followLink();
        // Events alone do not show that the chip hears: while it answers nothing the link is asked for all
        // the same.
        const bool eventCame = GBSSlave_TreatEvent() == 1 && chipSilence() < s_period.load();
        watch.tick(Clock::now(), startedLink(), eventCame);
        noteProgress();
    }
}

void EventPump::start(LinkI& link)
{
    s_startedAt = Clock::now();
    s_link = &link;
}

void EventPump::stop()
{
    s_link = nullptr;
}

bool EventPump::isStarted()
{
    return startedLink() != nullptr;
}

void EventPump::noteProgress()
{
    s_progress = Clock::now();
    watchSilence();
}

std::optional<milliseconds> EventPump::silence()
{
    const Clock::time_point last = s_progress;
    return last == Clock::time_point{} ? std::nullopt : std::optional(since(last));
}

milliseconds EventPump::chipSilence()
{
    return isStarted() ? std::min(since(s_startedAt), milliseconds(GBSSlave_GetSilence())) : milliseconds(0);
}

milliseconds EventPump::reportedSilence()
{
    return std::chrono::duration_cast<milliseconds>(kReportedPeriods * s_period.load());
}

void EventPump::setSilenceCallback(void (*callback)())
{
    s_silenceCallback = callback;
}

void EventPump::setWatchPeriod(milliseconds period)
{
    s_period = period;
}
