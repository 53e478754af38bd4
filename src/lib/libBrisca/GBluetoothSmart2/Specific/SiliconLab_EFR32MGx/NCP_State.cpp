#include "NCP_State.h"

#include "GOS.h"

#include <algorithm>

namespace ncp {
namespace {
constexpr int kErrnoTimeout = 22;
}

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

EventWait::EventWait()
{
    managerState.waitingTask = GOS_GetCurrentTaskId();
}

EventWait::~EventWait()
{
    managerState.waitingTask = kNoWaitingTask;  // an event that comes too late must not wake a later wait
}

bool EventWait::completed() const
{
    const int signals = GOS_WaitForSignal(kEventCompletedSignal, kEventTimeoutMs);
    if (signals > 0 && (static_cast<std::uint32_t>(signals) & kEventCompletedSignal) != 0)
        return true;
    GOS_SetErrno(kErrnoTimeout);
    return false;
}

void wakeWaitingTask()
{
    const std::uint16_t task = managerState.waitingTask.exchange(kNoWaitingTask);
    if (task < kNoWaitingTask)
        GOS_SendSignal(kEventCompletedSignal, task);
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
