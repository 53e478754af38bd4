#include "GBSSlave.h"
#include "Harness.h"
#include "StdoutCapture.h"
#include "Wait.h"

#include <array>

using namespace gbstest;
using Lines = std::vector<std::string>;

namespace {
constexpr std::array<std::uint8_t, 255> kData = {0xA1, 0xB2};
constexpr const char* kNotification = "0A 05: 01 1A 00 02 A1 B2";

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
    FakeChip m_chip;
    const LogLevelScope m_level{"NCP_MANAGER", LogLevel::Debug};
    testsupport::StdoutCapture m_log;
};
}  // namespace

TEST_F(Notifications, AreLoggedAndSentOnce)
{
    m_chip.answerWith(answerFrom(1, "00 00"));
    EXPECT_EQ(notify(2), 1u);
    EXPECT_EQ(m_chip.takeCommands(), kNotification) << "connection 1, whatever the caller gives";
    const std::string node = " [NCP_MANAGER] [Send Notification] ";
    EXPECT_EQ(m_log.logLines(),
              (Lines{"<DEBUG>" + node + "Length : 2", "<DEBUG>" + node + "NCP->UART Data { 0xA1, 0xB2 }",
                     "<INFO >" + node + "Attempt 1 : Notification result 0"}));
}

TEST_F(Notifications, ThatTheChipRefusesAreNotRepeated)
{
    m_chip.answerWith(answerFrom(1, "81 01"));
    EXPECT_EQ(notify(2), 0u);
    EXPECT_EQ(m_chip.takeCommands(), kNotification);
    EXPECT_TRUE(m_log.contains("Attempt 1 : Notification result 385"));
}

TEST_F(Notifications, WithoutAResponseAreRepeated)
{
    m_chip.answerWith(answerFrom(3, "00 00"));
    EXPECT_EQ(notify(2), 1u);
    EXPECT_EQ(m_chip.commands(), Lines(3, kNotification));
    EXPECT_EQ(m_log.count("NO response."), 2);
    EXPECT_TRUE(m_log.contains("Attempt 3 : Notification result 0"));
}

TEST_F(Notifications, AreGivenUpAfterFifteenAttempts)
{
    m_chip.answerWith(answerFrom(1000, ""));
    EXPECT_EQ(notify(252), 0u);
    EXPECT_EQ(m_chip.commands(),
              Lines(15, "0A 05: 01 1A 00 FC A1 B2" + toHex(std::string(250, '\0')).insert(0, " ")));
    EXPECT_TRUE(m_log.contains("Attempt 15 : NO response."));
}

TEST_F(Notifications, TooLongForAPacketTakeAllAttemptsUnsent)
{
    EXPECT_EQ(notify(253), 0u);
    EXPECT_EQ(m_chip.takeCommands(), "");
    EXPECT_EQ(m_log.count("NO response."), 15);
}

TEST_F(Notifications, EndWhenTheLineIsLetGo)
{
    m_chip.answerWith(answerFrom(1000, ""));
    auto result = std::async(std::launch::async, [] { return notify(2); });
    ASSERT_TRUE(testsupport::waitUntil([this] { return !m_chip.commands().empty(); }));
    GBSSlave_LetGoLine();
    EXPECT_EQ(result.get(), 0u);
    EXPECT_LT(m_log.count("NO response."), 15);
}
