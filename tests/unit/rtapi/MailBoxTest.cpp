#include "FakeSystem.h"
#include "Rows.h"
#include "mailbox/MailBox.h"

#include <map>
#include <mutex>
#include <semaphore>
#include <thread>

namespace {
using testsupport::Rows;
/// A lock that can be made to fail.
class TestLock : public FifoMutexI
{
public:
    bool Take() override { return works; }
    void Give() override {}
    void SetName(const char*) override {}
    bool works = true;
};

TEST(Fifo, KeepsTheOrderOfThirtyTwoMessagesAroundTheEndOfItsRing)
{
    TestLock lock;
    Fifo fifo(1, lock);
    std::string out;
    for (const int taken : {0, 20, 20}) {
        for (int count = 0; count < taken; ++count) {
            out += fifo.front();
            fifo.pop();
        }
        for (char letter = 'A'; !fifo.isFull(); ++letter)
            EXPECT_TRUE(fifo.push(&letter, 1));
        EXPECT_FALSE(fifo.push("!"));
    }
    EXPECT_EQ(out, "ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`ABCDEFGH");
    EXPECT_EQ(std::string(fifo.front()) + fifo.back(), "IT");
}

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

TEST(Fifo, IsNeutralWhenEmptyOrWithoutItsLock)
{
    TestLock lock;
    Fifo fifo(4, lock);
    fifo.pop();
    FifoI::Msg message = {7, nullptr};
    fifo.front(message);
    EXPECT_EQ(message.length, 0);
    EXPECT_STREQ(message.data, "");
    EXPECT_STREQ(fifo.back(), "");
    ASSERT_TRUE(fifo.push("kept"));
    lock.works = false;
    EXPECT_TRUE(fifo.isEmpty());
    EXPECT_TRUE(fifo.isFull());
    EXPECT_FALSE(fifo.push("lost"));
    fifo.pop();
    lock.works = true;
    EXPECT_STREQ(fifo.front(), "kept");
    EXPECT_STREQ(fifo.back(), "kept");
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

/// Several senders and receivers on one mailbox. What the receivers got is counted by message; a receiver
/// sees 0 when it was woken for a message that had been dropped.
class MailTraffic
{
public:
    static constexpr unsigned kPairs = 3;
    static constexpr unsigned kMessages = 2000;

    /// @param bounded keeps the mailbox from overflowing
    explicit MailTraffic(bool bounded)
    {
        std::vector<std::jthread> threads;
        for (unsigned pair = 0; pair < kPairs; ++pair) {
            threads.emplace_back([=, this] { send(pair, bounded); });
            threads.emplace_back([=, this] { receive(bounded); });
        }
    }

    std::map<unsigned, int> received;

private:
    void send(unsigned pair, bool bounded)
    {
        for (unsigned index = 0; index < kMessages; ++index) {
            const unsigned message = 1 + pair * kMessages + index;
            if (bounded)
                m_room.acquire();
            m_mailbox.SendMail(reinterpret_cast<const char*>(&message));
        }
    }
    void receive(bool bounded)
    {
        for (unsigned index = 0; index < kMessages; ++index) {
            unsigned message = 0;
            m_mailbox.WaitForMail(reinterpret_cast<char*>(&message));
            if (bounded)
                m_room.release();
            const std::lock_guard lock(m_mutex);
            ++received[message];
        }
    }

    MailBox m_mailbox{sizeof(unsigned), "traffic"};
    std::counting_semaphore<32> m_room{32};
    std::mutex m_mutex;
};

TEST_F(MailBoxTest, DeliversEveryMessageOnceToSeveralReceivers)
{
    constexpr auto kAll = MailTraffic::kPairs * MailTraffic::kMessages;
    for (const bool bounded : {true, false}) {
        SCOPED_TRACE(bounded ? "with room for all" : "with an overflow");
        const MailTraffic traffic(bounded);
        for (const auto& [message, times] : traffic.received) {
            EXPECT_LE(message, kAll);
            EXPECT_TRUE(times == 1 || (message == 0 && !bounded)) << message;
        }
        EXPECT_TRUE(traffic.received.size() == kAll || !bounded);
    }
}
}  // namespace
