#include "BTP_Core.h"
#include "BTP_Internal.h"
#include "GBSSlave.h"
#include "GOS.h"
#include "facade/Log.h"

#include <array>

BRISCA_LOG_NODE(logNode, "[BTP_MANAGER_PROCESS]");

namespace {
constexpr int kWakeMs = 2000;
/// Where the task ends, as GEM_Catch reports it.
constexpr int kEndLine = 242;

void setUpPlatform()
{
    BTP_Frame_Init();
    BTP_LowLevel_callback_Init(GBSSlave_GATTNotification);
    BTP_Clock_Driver_Callback_Init(BTPGetTime, BTPSubTime);
    BTP_OS_Callback_Init(BTP_Process_Rx_Signal, GOS_WaitForDelay, GOS_WaitForSemaphore, GOS_ReleaseSemaphore);
    BTP_Frame_SEMID(SEM_ID_BTP_FRAME);
}

/// A time-out clears the signals that arrive in that very instant. Without a second look the writer would
/// wait for ever for its result, and the first request of a phone would stay unread.
unsigned overlookedSignals()
{
    return (btp::transmitRequested() ? btp::kSignalTransmit : 0) |
           (TotalRxBytesAvailable() > 0 ? btp::kSignalFrameComplete : 0);
}

unsigned waitForSignals()
{
    const int pending = GOS_WaitForSignal(btp::kSignalTransmit | btp::kSignalFrameComplete, kWakeMs);
    return pending != 0 ? static_cast<std::uint8_t>(pending) : overlookedSignals();
}

bool followLink(bool wasConnected)
{
    const bool connected = GBSSlave_GetLinkStatus() == 1;
    if (wasConnected && !connected) {
        BRISCA_DEBUG(logNode, "Link closed");
        // The next phone may have written already, and the event of its beginning may be lost.
        if (BTP_RxLink() != GBSSlave_GetLinkNumber())
            EraseBTPFrameBuffer();
    }
    return connected;
}

/// A signal whose message went out already finds none, and must not post a second result.
void serveWriter()
{
    const std::optional<int> result = btp::transmitWaiting();
    if (!result)
        return;
    std::array<char, btp::kResultMailLength> mail{};
    mail[0] = static_cast<char>(*result);
    GOS_RequestSendMail(GOS_GetTaskID(btp::kManagerTask), mail.data());
}
}  // namespace

void BTP_Manager_Process_Task()
{
    setUpPlatform();
    bool connected = false;
    while (GOS_GetException() == 0) {
        const unsigned pending = waitForSignals();
        connected = followLink(connected);
        if ((pending & btp::kSignalFrameComplete) != 0)
            GOS_SendSignal(btp::kSignalDataReceived, GOS_GetTaskID(btp::kReaderTask));
        if ((pending & btp::kSignalTransmit) != 0)
            serveWriter();
    }
    GEM_Catch(0, 0, kEndLine);
}
