#include "NCP_State.h"

#include "GOS.h"

#include <algorithm>
#include <utility>

namespace ncp {
namespace {
constexpr int kErrnoTimeout = 22;

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

ManagerState managerState;

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

void Version::set(std::uint8_t major, std::uint8_t minor, std::uint8_t patch)
{
    m_packed = static_cast<std::uint32_t>(major << 16 | minor << 8 | patch);
}

void Version::copyTo(std::uint8_t out[kVersionLength]) const
{
    const std::uint32_t packed = m_packed;
    out[0] = static_cast<std::uint8_t>(packed >> 16);
    out[1] = static_cast<std::uint8_t>(packed >> 8);
    out[2] = static_cast<std::uint8_t>(packed);
}

void endLink(tGBS_LinkState state)
{
    managerState.linkDoubted = false;
    ++managerState.linkNumber;
    managerState.linkState = state;
}

void Waiter::begin(std::uint32_t eventId)
{
    const std::uint16_t task = GOS_GetCurrentTaskId();
    const std::lock_guard lock(m_lock);
    m_task = task;
    m_eventId = eventId;
    m_isWoken = false;
}

bool Waiter::end()
{
    const std::lock_guard lock(m_lock);
    m_task = kNoWaitingTask;
    return m_isWoken;
}

void Waiter::wake(std::uint32_t eventId)
{
    const std::lock_guard lock(m_lock);
    if (eventId != m_eventId || m_task >= kNoWaitingTask)
        return;
    GOS_SendSignal(kEventCompletedSignal, std::exchange(m_task, kNoWaitingTask));
    m_isWoken = true;
}

EventWait::EventWait(std::uint32_t eventId)
{
    managerState.waiter.begin(eventId);
}

EventWait::~EventWait()
{
    if (!managerState.waiter.end() || m_isTaken)
        return;
    // A wait that timed out may have cleared the signal: sent once more, it is there for certain.
    GOS_SendSignal(kEventCompletedSignal, GOS_GetCurrentTaskId());
    takeSignal(0);
}

bool EventWait::completed()
{
    m_isTaken = takeSignal(kEventTimeoutMs);
    if (!m_isTaken)
        GOS_SetErrno(kErrnoTimeout);
    return m_isTaken;
}
}  // namespace ncp

using ncp::managerState;

void NCPManager_SetGATTReadCallback(tGBS_GATTReadCallback callback)
{
    managerState.gattRead = callback;
}

void NCPManager_SetGATTWriteCallback(tGBS_GATTWriteCallback callback)
{
    managerState.gattWrite = callback;
}

void NCPManager_SetSMDisplayPasskeyCallback(tGBS_SMDisplayPasskeyCallback callback)
{
    managerState.displayPasskey = callback;
}

void NCPManager_SetSMConfirmPasskeyCallback(tGBS_SMConfirmPasskeyCallback callback)
{
    managerState.confirmPasskey = callback;
}

void NCPManager_SetDeviceNameCallback(tGBS_DeviceNameCallback callback)
{
    managerState.deviceName = callback;
}

void NCPManager_SetEventCallback(tGBS_EventCallback callback)
{
    managerState.event = callback;
}
