#include "FakeSystem.h"
#include "thread/TaskCollection.h"

namespace {
constexpr int kMessageSize = 4;
TaskCollection* running = nullptr;  // what the bodies of the tasks work with

class Tasks : public RuntimeTest
{
protected:
    Tasks() { running = &m_tasks; }

    TaskCollection m_tasks;
};

void idle() {}

TEST_F(Tasks, OfOneNameShareTheLaterId)
{
    for (const char* name : {"twin", "other", "twin"})
        m_tasks.CreateTask(name, idle, kMessageSize);
    EXPECT_EQ(m_tasks.GetTaskId("other"), 1);
    EXPECT_EQ(m_tasks.GetTaskId("twin"), 2);
    EXPECT_EQ(m_tasks.GetTaskId("twi"), -1);
    m_tasks.SendSignal(0x40, 2);
    StdoutCapture capture;
    m_tasks.SendSignal(0x1, 0);
    EXPECT_EQ(capture.logLines(), Lines{"<ERROR> [RTapi.TASKS] Failed to send signal '1' to task '0'"});
}

std::array<std::atomic<int>, 8> timesSeen;

TEST_F(Tasks, KnowTheirIdFromTheirFirstStatement)
{
    for (auto& times : timesSeen)
        times = 0;
    const auto countOwnId = [] { ++timesSeen.at(static_cast<std::size_t>(running->GetCurrentTaskId())); };
    for (int round = 0; round < 20; ++round) {
        TaskCollection tasks;
        running = &tasks;
        for (std::size_t index = 0; index < timesSeen.size(); ++index)
            tasks.CreateTask(("task" + std::to_string(index)).c_str(), countOwnId, kMessageSize);
        tasks.StartTasks();
        tasks.Join();
        StdoutCapture capture;
        EXPECT_EQ(tasks.GetCurrentTaskId(), -1);
    }
    for (const auto& times : timesSeen)
        EXPECT_EQ(times, 20);
}
}  // namespace
