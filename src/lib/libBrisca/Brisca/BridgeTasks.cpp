#include "BridgeTasks.h"

#include "BTP_Core.h"
#include "Brisca.h"
#include "DeviceName.h"
#include "GBSSlave.h"
#include "GOS.h"
#include "LinkWatchdog.h"
#include "PipeTasks.h"
#include "SilenceWatch.h"
#include "facade/Log.h"

#include <atomic>
#include <ctime>
#include <mutex>

BRISCA_LOG_NODE(logNode, "Brisca");

namespace {
constexpr unsigned kPollPeriodMs = 10;
constexpr int kMailboxSize = 4;
constexpr int kReportedPeriods = 3;

std::atomic<Brisca*> s_stack{nullptr};           // set before the tasks start
std::atomic<bool> s_callbacksRegistered{false};  // set once, by "GBS2App"
// Set before the tasks start.
std::atomic<LinkWatchdog::Clock::duration> s_watchPeriod{LinkWatchdog::kPeriod};
// Of the event pump; the epoch of the clock while there is none.
std::atomic<LinkWatchdog::Clock::time_point> s_pumpProgress{};

// ---- The stack's callbacks --------------------------------------------------------------------------------

void registerCallbacks()
{
    GBSSlave_SetGATTWriteCallback(PipeTasks::GATTWriteCallback);
    GBSSlave_SetGiveDeviceNameCallback(giveDeviceName);
    GBSSlave_SetEventCallback(Brisca::GetEventsCallback());
}

void Task_GBS2App()
{
    BRISCA_NOTIC(logNode, "Start GBS2App task");
    registerCallbacks();
    s_callbacksRegistered = true;
    s_callbacksRegistered.notify_all();
}

// ---- The event pump ---------------------------------------------------------------------------------------

LinkWatchdog::Link lookAtLink(const Brisca* stack)
{
    using enum LinkWatchdog::Link;
    if (stack == nullptr || !stack->isStarted())
        return Stopped;
    if (!GBSSlave_HasBooted())
        return Booting;
    switch (GBSSlave_PeekState()) {
        case GBS_LINK_ADVERTISING:
            return Advertising;
        case GBS_LINK_CONNECTED:
            return Connected;
        default:
            return OffAir;
    }
}

/// The chip may have restarted without a boot event that arrived; then it has lost everything that was set.
void restoreAdvertising(Brisca& stack, LinkWatchdog& watchdog)
{
    BRISCA_DEBUG(logNode, "Set up advertising anew");
    if (stack.refreshAdvertising())
        watchdog.refreshed();
    else
        watchdog.again();
}

void checkLink(Brisca& stack, LinkWatchdog& watchdog, bool refresh)
{
    switch (GBSSlave_CheckLink()) {
        case GBS_LINK_CHECK_UNKNOWN:
        case GBS_LINK_CHECK_BEGUN:
            break;
        case GBS_LINK_CHECK_DOUBTED:
            watchdog.again();
            break;
        case GBS_LINK_CHECK_ENDED:
            stack.configureSecurity();  // perhaps it ended by a restart
            break;
        case GBS_LINK_CHECK_AGREES:
            if (refresh)
                restoreAdvertising(stack, watchdog);
            break;
    }
}

void keepOnAir(LinkWatchdog& watchdog)
{
    using enum LinkWatchdog::Alarm;
    Brisca* const stack = s_stack;
    const auto alarm = watchdog.tick(LinkWatchdog::Clock::now(), [stack] { return lookAtLink(stack); });
    switch (alarm) {
        case None:
            break;
        case Advertise:
            if (!watchdog.isRepetition())
                BRISCA_NOTIC(logNode, "Neither advertising nor connected for %d s, start advertising again",
                             static_cast<int>(LinkWatchdog::kPeriod.count()));
            stack->configureSecurity();  // perhaps a boot event has been lost
            stack->startAdvertising(0);
            break;
        case Check:
        case Refresh:
            checkLink(*stack, watchdog, alarm == Refresh);
            break;
    }
}

void reportSilence(std::chrono::milliseconds silence)
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
    using enum SilenceWatch::Alarm;
    static std::mutex lock;
    static SilenceWatch watch(BridgeTasks::reportedSilence());  // guarded by lock
    const Brisca* const stack = s_stack;
    if (stack == nullptr)
        return;
    const std::chrono::milliseconds silence = stack->silence();
    std::unique_lock guard(lock);
    const auto alarm = watch.tick(SilenceWatch::Clock::now(), silence);
    guard.unlock();
    if (alarm == Warn)
        reportSilence(silence);
    else if (alarm == Reenter)
        Brisca::tellSilence();
}

/// Events alone do not show that the chip hears: while it answers nothing the link is asked for all the same.
void treatEvent(LinkWatchdog& watchdog)
{
    const Brisca* const stack = s_stack;
    if (GBSSlave_TreatEvent() == 1 && stack != nullptr && stack->silence() < s_watchPeriod.load())
        watchdog.eventCame(LinkWatchdog::Clock::now());
}

[[noreturn]] void Task_GBS2Event()
{
    BRISCA_NOTIC(logNode, "Start GBS2Event task");
    // A boot event handled before its callback is known would leave the station silent. Ends as soon as
    // "GBS2App", which is started by the same call, has run.
    s_callbacksRegistered.wait(false);
    LinkWatchdog watchdog(s_watchPeriod.load());
    while (true) {
        GBSSlave_TreatInternalEvent(kPollPeriodMs);
        PipeTasks::followLink();
        treatEvent(watchdog);
        keepOnAir(watchdog);
        BridgeTasks::notePumpProgress();
    }
}

// ---- Creation ---------------------------------------------------------------------------------------------

struct TaskRow
{
    const char* name;
    void (*entry)();
};
constexpr TaskRow kTasks[] = {
    {"BTP_Manager_Process", BTP_Manager_Process_Task},
    {"GBS2App", Task_GBS2App},
    {"GBS2Event", Task_GBS2Event},
    {"BTPtoCoAP", PipeTasks::Task_BTP_to_CoAP},
    {"CoAPtoBTP", PipeTasks::Task_Coap_to_BTP},
};
}  // namespace

void BridgeTasks::startOnce(Brisca& stack)
{
    static bool created = false;  // main thread only
    s_stack = &stack;
    if (created) {
        GBSSlave_SetEventCallback(Brisca::GetEventsCallback());
        return;
    }
    created = true;
    notePumpProgress();
    for (const TaskRow& task : kTasks)
        GOS_CreateTask(task.name, task.entry, kMailboxSize);
    GOS_StartTasks();
}

void BridgeTasks::setWatchPeriod(std::chrono::milliseconds period)
{
    s_watchPeriod = period;
}

void BridgeTasks::notePumpProgress()
{
    s_pumpProgress = LinkWatchdog::Clock::now();
    watchSilence();
}

std::optional<std::chrono::milliseconds> BridgeTasks::pumpSilence()
{
    const auto last = s_pumpProgress.load();
    if (last == LinkWatchdog::Clock::time_point{})
        return std::nullopt;
    return std::chrono::duration_cast<std::chrono::milliseconds>(LinkWatchdog::Clock::now() - last);
}

std::chrono::milliseconds BridgeTasks::reportedSilence()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(kReportedPeriods * s_watchPeriod.load());
}

void BridgeTasks::forget(const Brisca& stack)
{
    if (s_stack == &stack)
        s_stack = nullptr;
}
