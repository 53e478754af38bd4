#include "BtpFixture.h"
#include "GBSSlave.h"
#include "GOS.h"

namespace {
/// The manager task runs on GOS; notifications go to the fixture.
class Manager : public BtpFixture
{
protected:
    Manager()
    {
        static const bool started = start();
        EXPECT_TRUE(started);
        BTP_LowLevel_callback_Init(notify);
        BTP_OS_Callback_Init([] {}, GOS_WaitForDelay, GOS_WaitForSemaphore, GOS_ReleaseSemaphore);
    }

private:
    static bool start()
    {
        GOS_CreateTask("BTP_Manager_Process", BTP_Manager_Process_Task, 4);
        GOS_StartTasks();
        // Its first answer tells that the manager task has set the platform up.
        return BTP_IO_Write(nullptr, 0) == 1;
    }
};

TEST_F(Manager, SendsTheMessagesOfSeveralWritersOneAfterTheOther)
{
    constexpr unsigned kWriters = 3;
    constexpr unsigned kMessages = 5;
    std::vector<std::thread> writers;
    for (unsigned writer = 0; writer < kWriters; ++writer)
        writers.emplace_back([writer] {
            const Bytes message(150 + writer, static_cast<std::uint8_t>(writer));
            for (unsigned i = 0; i < kMessages; ++i)
                EXPECT_EQ(BTP_IO_Write(message.data(), static_cast<unsigned>(message.size())), 1);
        });
    for (std::thread& writer : writers)
        writer.join();
    ASSERT_EQ(sent.size(), kWriters * kMessages * 3);
    for (std::size_t i = 0; i < sent.size(); i += 3) {
        const std::uint8_t writer = sent[i][1];
        EXPECT_EQ(sent[i].size(), 1 + 150U + writer - 138);
        EXPECT_EQ(sent[i + 1][1], writer);
        EXPECT_EQ(sent[i + 2][1], writer);
    }
}

TEST_F(Manager, TellsTheWriterOfARefusal)
{
    const Bytes message = counting(5);
    accept = [] { return false; };
    EXPECT_EQ(BTP_IO_Write(message.data(), 5), -1);
    accept = nullptr;
    EXPECT_EQ(BTP_IO_Write(message.data(), 5), 1);
    EXPECT_EQ(BTP_IO_WriteOnLink(GBSSlave_GetLinkNumber() - 1, message.data(), 5), -1);
    EXPECT_EQ(sent.size(), 3U) << "nothing for a phone that has gone";
}

TEST_F(Manager, SendsBackWhatTheLoopBackFinds)
{
    EXPECT_EQ(BTP_LoopBack(), 0);
    receive(0x80, counting(5));
    EXPECT_EQ(BTP_LoopBack(), 1);
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(Bytes(sent[0].begin() + 1, sent[0].end()), counting(5));
}
}  // namespace
