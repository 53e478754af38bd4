#include "NCP_State.h"

#include "GOS.h"
#include "gecko.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace ncp {
namespace {
using Clock = std::chrono::steady_clock;

constexpr int kErrnoTimeout = 22;

/// Written by the event task and by the callers of the facade.
struct State
{
    std::atomic<std::uint8_t> linkState{GBS_LINK_DISABLED};
    std::atomic<bool> isDoubted{false};        // the chip's last word on its connection contradicted that
    std::atomic<std::uint32_t> linkNumber{1};  // 0 is nobody's
    std::atomic<bool> hasBooted{false};        // since the link was last disabled
    std::atomic<Clock::duration> lastAnswer{{}};
    Callbacks callbacks;
};
State state;

/// The one task that waits for an event, and the event.
struct Waiter
{
    std::mutex lock;  // also while the signal is sent: none is sent any more when the wait has ended
    std::uint16_t task = kNoWaitingTask;
    std::uint32_t eventId = 0;
    bool isWoken = false;
};
Waiter waiter;

/// The link, if there is one, is over, and the state is another one.
void endLink(tGBS_LinkState linkState)
{
    ++state.linkNumber;
    noteLinkState(linkState);
}

void copyVersion(std::uint32_t version, std::uint8_t out[kVersionLength])
{
    out[0] = static_cast<std::uint8_t>(version >> 16);
    out[1] = static_cast<std::uint8_t>(version >> 8);
    out[2] = static_cast<std::uint8_t>(version);
}

/// Waits for kEventCompletedSignal, without limit when @p timeoutMs is 0, and leaves the task's other signals
/// pending.
bool takeSignal(int timeoutMs)
{
    const int signals = GOS_WaitForSignal(kEventCompletedSignal, timeoutMs);
    if (signals <= 0)
        return false;
    const std::uint32_t others = static_cast<std::uint32_t>(signals) & ~kEventCompletedSignal;
    if (others != 0)
        GOS_SendSignal(others, GOS_GetCurrentTaskId());
    return true;  // the mask lets no other signal end the wait
}
}  // namespace

BondTable bonds;
std::atomic<std::int8_t> lastRssi{0};
std::atomic<std::uint16_t> dtmPackets{0};
std::atomic<std::uint32_t> firmwareVersion{0};
std::atomic<std::uint32_t> bootloaderVersion{0};
const Callbacks& callbacks = state.callbacks;

void noteAnswer()
{
    state.lastAnswer = Clock::now().time_since_epoch();
}

void noteLinkState(tGBS_LinkState linkState)
{
    state.isDoubted = false;
    state.linkState = linkState;
}

void noteBoot()
{
    endLink(state.linkState == GBS_LINK_DISABLED ? GBS_LINK_DISABLED : GBS_LINK_READY);
    state.hasBooted = true;
}

void noteConnectionOpened()
{
    if (state.linkState == GBS_LINK_CONNECTED)
        endLink(GBS_LINK_READY);  // the event that told the end of the one before was lost
    noteLinkState(GBS_LINK_CONNECTED);
}

void noteConnectionClosed()
{
    endLink(GBS_LINK_READY);
}

tGBS_LinkCheck noteConnection(tGBS_ConnectionAnswer answer)
{
    const bool isOpen = answer == GBS_CONNECTION_OPEN;
    const std::uint8_t believed = state.linkState;
    const bool wasDoubted = state.isDoubted.exchange(false);
    if (answer == GBS_CONNECTION_UNKNOWN ||
        (believed != GBS_LINK_CONNECTED && believed != GBS_LINK_ADVERTISING))
        return GBS_LINK_CHECK_UNKNOWN;
    if (isOpen == (believed == GBS_LINK_CONNECTED))
        return GBS_LINK_CHECK_AGREES;
    if (gecko_event_queued(isOpen ? kGbsEventConnectionOpened : kGbsEventConnectionClosed) ||
        gecko_event_queued(kGbsEventBoot))
        return GBS_LINK_CHECK_UNKNOWN;
    state.isDoubted = !wasDoubted;
    if (!wasDoubted)
        return GBS_LINK_CHECK_DOUBTED;
    return isOpen ? GBS_LINK_CHECK_BEGUN : GBS_LINK_CHECK_ENDED;
}

void BondTable::clear()
{
    const std::lock_guard lock(m_lock);
    m_entries = {};
    m_count = 0;
}

void BondTable::restart()
{
    const std::lock_guard lock(m_lock);
    m_count = 0;
}

void BondTable::append(const _tGBS_BondInfo& bond)
{
    const std::lock_guard lock(m_lock);
    if (m_count < m_entries.size())
        m_entries[m_count++] = bond;
}

std::uint8_t BondTable::copyTo(_tGBS_BondInfo* out) const
{
    const std::lock_guard lock(m_lock);
    std::ranges::copy(m_entries, out);
    return m_count;
}

EventWait::EventWait(std::uint32_t eventId)
{
    const std::uint16_t task = GOS_GetCurrentTaskId();
    const std::lock_guard lock(waiter.lock);
    waiter.task = task;
    waiter.eventId = eventId;
    waiter.isWoken = false;
}

EventWait::~EventWait()
{
    const std::lock_guard lock(waiter.lock);
    waiter.task = kNoWaitingTask;
    if (!waiter.isWoken || m_isTaken)
        return;
    // A wait that timed out may have cleared the signal: sent once more, it is there for certain.
    GOS_SendSignal(kEventCompletedSignal, GOS_GetCurrentTaskId());
    takeSignal(0);
}

void EventWait::wake(std::uint32_t eventId)
{
    const std::lock_guard lock(waiter.lock);
    if (eventId != waiter.eventId || waiter.task >= kNoWaitingTask)
        return;
    GOS_SendSignal(kEventCompletedSignal, std::exchange(waiter.task, kNoWaitingTask));
    waiter.isWoken = true;
}

bool EventWait::completed()
{
    m_isTaken = takeSignal(kEventTimeoutMs);
    if (!m_isTaken)
        GOS_SetErrno(kErrnoTimeout);
    return m_isTaken;
}
}  // namespace ncp

using namespace ncp;

void NCPManager_EndLink()
{
    endLink(GBS_LINK_DISABLED);
    state.hasBooted = false;
}

bool NCPManager_HasBooted()
{
    return state.hasBooted || state.linkState != GBS_LINK_DISABLED;
}

std::uint32_t NCPManager_GetSilence()
{
    using std::chrono::milliseconds;
    const auto silence = Clock::now().time_since_epoch() - state.lastAnswer.load();
    return static_cast<std::uint32_t>(
        std::min<milliseconds::rep>(std::chrono::duration_cast<milliseconds>(silence).count(), 0xFFFFFFFF));
}

std::uint8_t NCPManager_GetState()
{
    return state.linkState;
}

std::uint32_t NCPManager_GetLinkNumber()
{
    return state.linkNumber;
}

std::uint32_t NCPManager_GetNcpSdkVersion(std::uint8_t out[kVersionLength])
{
    copyVersion(firmwareVersion, out);
    return 1;
}

std::uint32_t NCPManager_GetNcpSblVersion(std::uint8_t out[kVersionLength])
{
    copyVersion(bootloaderVersion, out);
    return 1;
}

void NCPManager_SetGATTReadCallback(tGBS_GATTReadCallback callback)
{
    state.callbacks.gattRead = callback;
}

void NCPManager_SetGATTWriteCallback(tGBS_GATTWriteCallback callback)
{
    state.callbacks.gattWrite = callback;
}

void NCPManager_SetSMDisplayPasskeyCallback(tGBS_SMDisplayPasskeyCallback callback)
{
    state.callbacks.displayPasskey = callback;
}

void NCPManager_SetSMConfirmPasskeyCallback(tGBS_SMConfirmPasskeyCallback callback)
{
    state.callbacks.confirmPasskey = callback;
}

void NCPManager_SetDeviceNameCallback(tGBS_DeviceNameCallback callback)
{
    state.callbacks.deviceName = callback;
}

void NCPManager_SetEventCallback(tGBS_EventCallback callback)
{
    state.callbacks.event = callback;
}
