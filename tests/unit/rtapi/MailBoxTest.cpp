#include "FakeSystem.h"
#include "mailbox/MailBox.h"

#include <semaphore>

namespace {
class TestLock : public FifoMutexI
{
public:
    bool Take() override { return true; }
    void Give() override {}
    void SetName(const char*) override {}
};

TEST(Fifo, BoundsEveryMessageToItsSlot)
{
    for (const auto& [name, length, data, storedLength, stored] : Rows<int, const char*, int, std::string>{
             {"text as long as the slot", 0, "abcd", 4, "abcd"},
             {"longer text", 0, "abcdefgh", 4, "abcd"},
             {"shorter text, with what follows it", 0, "a\0cd", 1, std::string("a\0cd", 4)},
             {"a length of its own", 3, "abcd", 3, "abcd"},
             {"a length over the slot", 300, "abcdefgh", 4, "abcd"},
         }) {
        SCOPED_TRACE(name);
        TestLock lock;
        Fifo fifo(4, lock);
        ASSERT_TRUE(fifo.push(data, length));
        for (const bool atFront : {true, false}) {
            FifoI::Msg message = {};
            atFront ? fifo.front(message) : fifo.back(message);
            EXPECT_EQ(message.length, storedLength);
            EXPECT_EQ(std::string(message.data, 4), stored);
            EXPECT_EQ(message.data[4], '\0');
        }
    }
}

using MailBoxTest = RuntimeTest;

TEST_F(MailBoxTest, KeepsThirtyTwoMessagesAndWakesForTheRestWithoutCopying)
{
    MailBox mailbox(4, "full");
    for (int number = 0; number < 34; ++number)
        mailbox.SendMail(reinterpret_cast<const char*>(&number));
    for (int expected = 0; expected < 34; ++expected) {
        int received = -1;
        mailbox.WaitForMail(reinterpret_cast<char*>(&received));
        EXPECT_EQ(received, expected < 32 ? expected : -1);
    }
}

TEST_F(MailBoxTest, DeliversEveryMessageOnceToSeveralReceivers)
{
    constexpr unsigned kPairs = 3;
    constexpr unsigned kMessages = 2000;
    MailBox mailbox(sizeof(unsigned), "traffic");
    std::counting_semaphore<32> room{32};  // keeps the mailbox from overflowing
    std::vector<std::atomic<int>> received(kPairs * kMessages);
    const auto send = [&](unsigned first) {
        for (unsigned message = first; message < first + kMessages; ++message) {
            room.acquire();
            mailbox.SendMail(reinterpret_cast<const char*>(&message));
        }
    };
    const auto receive = [&] {
        for (unsigned index = 0; index < kMessages; ++index) {
            unsigned message = 0;
            mailbox.WaitForMail(reinterpret_cast<char*>(&message));
            room.release();
            ++received.at(message);
        }
    };
    {
        std::vector<std::jthread> threads;
        for (unsigned pair = 0; pair < kPairs; ++pair) {
            threads.emplace_back(send, pair * kMessages);
            threads.emplace_back(receive);
        }
    }
    for (const auto& times : received)
        EXPECT_EQ(times, 1);
}
}  // namespace
