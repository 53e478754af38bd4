#include "BtpFixture.h"
#include "GOS.h"
#include "efr32sim/Fragments.h"

namespace {
/// Receiver, reader and manager on threads of their own; run it under ThreadSanitizer.
class Threads : public testing::Test
{
protected:
    Threads()
    {
        BTP_OS_Callback_Init([] {}, GOS_WaitForDelayShort, GOS_WaitForSemaphore, GOS_ReleaseSemaphore);
        BTP_Clock_Driver_Callback_Init(BTPGetTime, BTPSubTime);
        BTP_Frame_SEMID(SEM_ID_BTP_FRAME);
        BTP_Frame_Init();
    }

    static int GOS_WaitForDelayShort(unsigned)
    {
        std::this_thread::yield();
        return 1;
    }

    static void send(unsigned number, const Bytes& frame)
    {
        efr32sim::FragmentEncoder encoder;
        encoder.setNextFrame(static_cast<std::uint8_t>(number));
        for (const Bytes& fragment : encoder.encode(frame))
            call_back_BTP_Receive(fragment.data(), static_cast<unsigned>(fragment.size()));
    }
};

TEST_F(Threads, SurviveAPhoneThatFloodsAndALinkThatFlaps)
{
    std::atomic<bool> done{false};
    std::thread phone([&] {
        for (unsigned number = 0; number < 20000; ++number)
            send(number, counting(1 + number * 37 % 300, number));
        done = true;
    });
    std::thread manager([&] {
        while (!done) {
            EraseBTPFrameBuffer();
            std::this_thread::yield();
        }
        EraseBTPFrameBuffer();
    });
    Bytes buffer(kBtpMessageLength + kBtpSlotCapacity);
    while (!done) {
        const unsigned available = BTP_RxBytesAvailable();
        ASSERT_LE(available, kBtpSlots * kBtpSlotCapacity);
        // Asking for less than a frame reads in part, and so drops frames, too.
        ASSERT_LE(BTP_Receive(buffer.data(), available / 2, 0), kBtpMessageLength + kBtpSlotCapacity);
    }
    phone.join();
    manager.join();
}
}  // namespace
