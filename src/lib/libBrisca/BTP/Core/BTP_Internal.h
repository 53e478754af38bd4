#pragma once

// What the source files of BTP share among themselves.

#include "BTP_Core.h"
#include "GOS.h"

#include <atomic>
#include <optional>

namespace btp {
inline constexpr const char* kManagerTask = "BTP_Manager_Process";
inline constexpr const char* kReaderTask = "BTPtoCoAP";
/// Bytes of a result message in the manager's mailbox.
inline constexpr unsigned kResultMailLength = 4;

// Task signals.
inline constexpr unsigned kSignalTransmit = 4;       // to the manager: a writer waits
inline constexpr unsigned kSignalFrameComplete = 8;  // to the manager
inline constexpr unsigned kSignalDataReceived = 32;  // to "BTPtoCoAP"

/// The functions that the set-up calls put in place. Atomic: other tasks run already when the manager task
/// sets them.
struct Platform
{
    std::atomic<BTP_NotifyCallback> notify{nullptr};
    std::atomic<BTP_RxSignalCallback> rxSignal{nullptr};
    std::atomic<BTP_DelayCallback> delay{nullptr};
    std::atomic<BTP_SemaphoreCallback> semaphoreWait{nullptr};
    std::atomic<BTP_SemaphoreCallback> semaphoreRelease{nullptr};
    std::atomic<BTP_GetTimeCallback> getTime{nullptr};
    std::atomic<BTP_SubTimeCallback> subTime{nullptr};
    std::atomic<std::uint16_t> frameSemaphoreId{SEM_ID_BTP_FRAME};
};
extern Platform platform;

void delay(unsigned milliseconds);

/// A writer's message waits for the manager task.
[[nodiscard]] bool transmitRequested();
/// Transmits the waiting message, if there is one, and returns the result of BTP_Transmit. Manager task.
[[nodiscard]] std::optional<int> transmitWaiting();
}  // namespace btp
