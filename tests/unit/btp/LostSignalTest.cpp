#include "BtpFixture.h"
#include "GOS.h"

#include <semaphore>

namespace {
std::binary_semaphore readerWoken{0};

/// The manager task gets no signal at all: another task of its name, created earlier, receives them. Like
/// this it stands for a signal that arrives while a time-out clears the pending ones.
class LostSignal : public BtpFixture
{
protected:
    LostSignal()
    {
        [[maybe_unused]] static const bool started = start();
        BTP_LowLevel_callback_Init(notify);
        BTP_OS_Callback_Init(BTP_Process_Rx_Signal, GOS_WaitForDelay, GOS_WaitForSemaphore,
                             GOS_ReleaseSemaphore);
    }

private:
    static bool start()
    {
        static std::binary_semaphore never{0};
        GOS_CreateTask(
            "BTP_Manager_Process", [] { never.acquire(); }, 4);
        GOS_CreateTask("BTP_Manager_Process", BTP_Manager_Process_Task, 4);
        GOS_CreateTask(
            "BTPtoCoAP",
            [] {
                BTP_Wait_Until_Data_Received(0);
                readerWoken.release();
                never.acquire();
            },
            4);
        GOS_StartTasks();
        return BTP_IO_Write(nullptr, 0) == 1;
    }
};

TEST_F(LostSignal, OfAWriterDoesNotKeepItWaiting)
{
    const Bytes message = counting(70);
    EXPECT_EQ(BTP_IO_Write(message.data(), 70), 1);
    EXPECT_EQ(BTP_IO_Write(message.data(), 70), 1);
    EXPECT_EQ(sent.size(), 4U) << "each message is sent once";
}

TEST_F(LostSignal, OfAFrameDoesNotKeepTheReaderAsleep)
{
    EXPECT_FALSE(readerWoken.try_acquire_for(std::chrono::milliseconds(200))) << "by no frame";
    receive(0x80, counting(10));
    EXPECT_TRUE(readerWoken.try_acquire_for(std::chrono::seconds(30)));
}
}  // namespace
