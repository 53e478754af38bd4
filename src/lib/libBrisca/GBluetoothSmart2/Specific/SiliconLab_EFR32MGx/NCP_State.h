#pragma once

// What the co-processor's events and answers change and the NCPManager functions report.

#include "NCP_Manager.h"

#include <array>
#include <atomic>
#include <mutex>

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

extern BondTable bonds;

// What the latest events reported, written by the event task. A version is one word, major first, so that its
// three bytes are always of the same boot.
extern std::atomic<std::int8_t> lastRssi;
extern std::atomic<std::uint16_t> dtmPackets;
extern std::atomic<std::uint32_t> firmwareVersion;
extern std::atomic<std::uint32_t> bootloaderVersion;

struct Callbacks
{
    std::atomic<tGBS_GATTReadCallback> gattRead{nullptr};
    std::atomic<tGBS_GATTWriteCallback> gattWrite{nullptr};
    std::atomic<tGBS_SMDisplayPasskeyCallback> displayPasskey{nullptr};
    std::atomic<tGBS_SMConfirmPasskeyCallback> confirmPasskey{nullptr};
    std::atomic<tGBS_DeviceNameCallback> deviceName{nullptr};
    std::atomic<tGBS_EventCallback> event{nullptr};
};
extern const Callbacks& callbacks;  // set by the functions of NCP_Manager.h

// ---- What changes the state of the link, beside NCPManager_EndLink. Any thread ----------------------------

/// The chip has answered a command, with success or an error.
void noteAnswer();
/// The chip has come to this state by a command.
void noteLinkState(tGBS_LinkState linkState);
/// A chip that restarted by itself has neither a link nor advertising left, whatever it had before.
void noteBoot();
void noteConnectionOpened();
void noteConnectionClosed();
/// The chip's word on its connection. An event that has not been lost mostly waits in the ring by now, and so
/// does the boot event that explains the difference as well. But the chip may also answer first and send the
/// event then: one answer alone is not believed.
/// @return ENDED and BEGUN say that the event has been lost; the caller makes up for it
tGBS_LinkCheck noteConnection(tGBS_ConnectionAnswer answer);

/// Makes the calling task the one that this event wakes, while the object lives. One at a time. It begins
/// before the command goes out, because the event may be handled before the command's response has been read.
/// A signal that nobody waited for, because the command failed or the event came too late, is gone with the
/// object.
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
    /// Signals the task when it waits for this event. Any thread.
    static void wake(std::uint32_t eventId);

private:
    bool m_isTaken = false;  // the signal of the event
};
}  // namespace ncp
