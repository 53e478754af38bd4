#pragma once

// What the co-processor's events change and the NCPManager functions report.

#include "NCP_Manager.h"

#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <span>

namespace ncp {
/// The chip's bonds, filled by one listing. Any thread.
class BondTable
{
public:
    /// Forgets entries and bytes.
    void clear();
    /// Starts a new listing; the bytes of the old entries stay until they are overwritten.
    void restart();
    /// Appends an entry; one that finds the table full is dropped.
    void append(const _tGBS_BondInfo& bond);
    /// Copies all entries, valid or not.
    /// @param out room for kBondTableEntries
    /// @return how many are valid
    std::uint8_t copyTo(_tGBS_BondInfo* out) const;

private:
    mutable std::mutex m_lock;
    std::array<_tGBS_BondInfo, kBondTableEntries> m_entries = {};
    std::uint8_t m_count = 0;
};

/// A version in one atomic word, so that its three bytes are always of the same boot.
class Version
{
public:
    void set(std::uint8_t major, std::uint8_t minor, std::uint8_t patch);
    void copyTo(std::uint8_t out[kVersionLength]) const;

private:
    std::atomic<std::uint32_t> m_packed{0};
};

/// The one task that waits for an event, and the event. Any thread.
class Waiter
{
public:
    void begin(std::uint32_t eventId);
    /// @return whether the event has come since begin()
    [[nodiscard]] bool end();
    /// Signals the task when it waits for this event.
    void wake(std::uint32_t eventId);

private:
    std::mutex m_lock;  // also while the signal is sent: none is sent any more when end() has returned
    std::uint16_t m_task = kNoWaitingTask;
    std::uint32_t m_eventId = 0;
    bool m_isWoken = false;
};

/// Written by the event task and by the callers of the facade, hence atomic where no lock is named.
struct ManagerState
{
    std::atomic<std::uint8_t> linkState{GBS_LINK_DISABLED};
    std::atomic<bool> hasBooted{false};                               // since the line was opened
    std::atomic<std::chrono::steady_clock::duration> lastAnswer{{}};  // to a command; of the steady clock
    std::atomic<std::uint32_t> linkNumber{1};                         // 0 is nobody's
    std::atomic<bool> linkDoubted{false};  // the chip's last word on its connection contradicted linkState
    std::atomic<std::int8_t> lastRssi{0};
    std::atomic<std::uint16_t> dtmPackets{0};
    Version firmware;
    Version bootloader;
    BondTable bonds;  // has its own lock
    Waiter waiter;    // has its own lock

    std::atomic<tGBS_GATTReadCallback> gattRead{nullptr};
    std::atomic<tGBS_GATTWriteCallback> gattWrite{nullptr};
    std::atomic<tGBS_SMDisplayPasskeyCallback> displayPasskey{nullptr};
    std::atomic<tGBS_SMConfirmPasskeyCallback> confirmPasskey{nullptr};
    std::atomic<tGBS_DeviceNameCallback> deviceName{nullptr};
    std::atomic<tGBS_EventCallback> event{nullptr};
};
extern ManagerState managerState;

/// The link, if there is one, is over, and the state is another one.
void endLink(tGBS_LinkState state);

/// Makes the calling task the one that this event wakes, while the object lives. It begins before the command
/// goes out, because the event may be handled before the command's response has been read. A signal that
/// nobody waited for, because the command failed or the event came too late, is gone with the object.
class EventWait
{
public:
    explicit EventWait(std::uint32_t eventId);
    ~EventWait();
    EventWait(const EventWait&) = delete;
    EventWait& operator=(const EventWait&) = delete;

    /// Waits for the event; false, with the GOS errno 22, when it has not come within kEventTimeoutMs. The
    /// time-out alone ends the wait, also when the line is let go meanwhile.
    [[nodiscard]] bool completed();

private:
    bool m_isTaken = false;  // the signal of the event
};
}  // namespace ncp
