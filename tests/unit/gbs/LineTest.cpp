// The facade on a real terminal: who owns the line, and when events are handled.

#include "GBSSlave.h"
#include "Harness.h"
#include "Pty.h"
#include "StdoutCapture.h"
#include "Wait.h"

#include <atomic>
#include <thread>

using namespace gbstest;

namespace {
std::atomic<int> boots{0};

/// The chip on the master side of a terminal: answers every command and can be told to send.
class PtyChip
{
public:
    PtyChip() : m_thread([this] { run(); }) {}
    ~PtyChip()
    {
        m_stop = true;
        m_thread.join();
    }

    [[nodiscard]] const char* path() const { return m_line.slavePath().c_str(); }
    void send(const std::string& bytes) const { m_line.write(bytes); }
    [[nodiscard]] int commands() const { return m_commands; }

private:
    void run()
    {
        while (!m_stop) {
            const std::string command = m_line.read(4, std::chrono::milliseconds(20));
            if (command.size() < 4)
                continue;
            static_cast<void>(m_line.read(static_cast<unsigned char>(command[1])));
            ++m_commands;
            m_line.write(response(toHex(command.substr(2)), "00 00"));
        }
    }

    testsupport::Pty m_line;
    std::atomic<int> m_commands{0};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

class Line : public testing::Test
{
protected:
    Line()
    {
        boots = 0;
        GBSSlave_SetEventCallback(
            [](std::uint32_t id, gecko_cmd_packet*) { boots += id == 0x000100A0 ? 1 : 0; });
    }
    ~Line() override
    {
        GBSSlave_SetEventCallback(nullptr);
        GBSSlave_LetGoLine();
    }

    /// Says hello until the chip answers in time, which on a busy machine it may not; gives the attempts.
    static int helloUntilAnswered()
    {
        int attempts = 0;
        EXPECT_TRUE(testsupport::waitUntil([&] {
            ++attempts;
            return GBSSlave_HelloNCP() == 1;
        }));
        return attempts;
    }

    /// Handles events until so many boots have been seen.
    static bool pumpUntilBoots(int count)
    {
        return testsupport::waitUntil([=] {
            GBSSlave_TreatEvent();
            return boots == count;
        });
    }

    const std::string m_boot = event("01 00", "00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    PtyChip m_chip;
};
std::atomic<bool> isBeingHandled{false};
std::atomic<bool> isLetGo{false};
}  // namespace

TEST_F(Line, LetGoItTakesNoByteAndHandlesNoEventUntilResumed)
{
    ASSERT_EQ(GBSSlave_Init(m_chip.path()), 1u);
    EXPECT_EQ(GBSSlave_GetState(), GBS_LINK_DISABLED);
    const int before = helloUntilAnswered();
    GBSSlave_LetGoLine();
    EXPECT_FALSE(GBSSlave_IsLineHeld());
    EXPECT_EQ(GBSSlave_HelloNCP(), 0u);
    {
        const testsupport::StdoutCapture log;
        EXPECT_EQ(GBSSlave_Enable(), 0u);
        EXPECT_FALSE(log.contains("[RTapi.TASKS] Failed to find current task")) << "it would wait for 5 s";
    }

    ASSERT_EQ(GBSSlave_Init(m_chip.path()), 1u);
    EXPECT_TRUE(GBSSlave_IsLineHeld());
    m_chip.send(m_boot);
    const int after = helloUntilAnswered();  // commands work before events are resumed
    EXPECT_TRUE(testsupport::waitUntil([&] { return m_chip.commands() == before + after; }))
        << "nothing was sent meanwhile";
    GBSSlave_TreatEvent();
    EXPECT_EQ(boots, 0);
    GBSSlave_ResumeEvents();
    EXPECT_TRUE(pumpUntilBoots(1)) << "the boot event has been kept";
}

TEST_F(Line, IsLetGoOnlyAfterTheEventThatIsBeingHandled)
{
    ASSERT_EQ(GBSSlave_Init(m_chip.path()), 1u);
    GBSSlave_ResumeEvents();
    isBeingHandled = isLetGo = false;
    GBSSlave_SetEventCallback([](std::uint32_t, gecko_cmd_packet*) {
        isBeingHandled = true;
        EXPECT_FALSE(testsupport::waitUntil([] { return isLetGo.load(); }, std::chrono::milliseconds(300)))
            << "this event would change the state of the stack's next run";
        ++boots;
    });
    m_chip.send(m_boot);
    std::thread pump([] { EXPECT_TRUE(pumpUntilBoots(1)); });
    EXPECT_TRUE(testsupport::waitUntil([] { return isBeingHandled.load(); }));
    GBSSlave_LetGoLine();
    isLetGo = true;
    pump.join();
}
