#include "Harness.h"

using namespace gbstest;

namespace {
constexpr std::array<std::uint8_t, 255> kData = {0xA1, 0xB2};

/// A chip that answers from the given attempt on.
FakeChip::Answer answerFrom(int attempt, const char* result)
{
    return [=, count = 0](const std::string& command) mutable {
        return ++count < attempt ? std::string() : response(idOf(command), result);
    };
}

std::uint32_t notify(std::uint8_t length)
{
    return GBSSlave_GATTNotification(9, 26, length, kData.data());
}

class Notifications : public testing::Test
{
protected:
    Notifications() { LogFacade::setLevel("NCP_MANAGER", LogLevel::Debug); }

    FakeChip m_chip;
    StdoutCapture m_log;
};
}  // namespace

TEST_F(Notifications, AreRepeatedOnlyWhileNoResponseComes)
{
    for (const auto& [name, answeredFrom, result, length, returned, sent, unanswered, lastLine] :
         Rows<int, const char*, std::uint8_t, std::uint32_t, std::size_t, int, const char*>{
             {"the first is answered", 1, "00 00", 2, 1, 1, 0, "Attempt 1 : Notification result 0"},
             {"a refusal is final", 1, "81 01", 2, 0, 1, 0, "Attempt 1 : Notification result 385"},
             {"the third is answered", 3, "00 00", 2, 1, 3, 2, "Attempt 3 : Notification result 0"},
             {"fifteen are the last", 16, "00 00", 252, 0, 15, 15, "Attempt 15 : NO response."},
             {"too long for a packet", 1, "00 00", 253, 0, 0, 15, "Attempt 15 : NO response."},
         }) {
        SCOPED_TRACE(name);
        const std::string data(kData.begin(), kData.begin() + length);
        m_log.clear();
        m_chip.answerWith(answerFrom(answeredFrom, result));
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(notify(length), returned);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, unanswered * std::chrono::milliseconds(100));
        EXPECT_TRUE(m_chip.allUnderApiLock());
        // To connection 1, whatever the caller gives.
        EXPECT_EQ(m_chip.commands(),
                  Lines(sent, "0A 05: 01 1A 00 " + toHex(static_cast<char>(length) + data)));
        EXPECT_EQ(m_log.count("NO response."), unanswered);
        EXPECT_THAT(m_log.logLines().back(), testing::EndsWith(lastLine));
        m_chip.takeCommands();
    }
}

TEST_F(Notifications, EndWhenTheLineIsLetGo)
{
    m_chip.answerWith(answerFrom(1000, ""));
    auto result = std::async(std::launch::async, [] { return notify(2); });
    ASSERT_TRUE(waitUntil([this] { return !m_chip.commands().empty(); }));
    GBSSlave_LetGoLine();
    EXPECT_EQ(result.get(), 0u);
    EXPECT_LT(m_log.count("NO response."), 15);
}
