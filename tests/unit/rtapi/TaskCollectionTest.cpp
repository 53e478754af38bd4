#include "FakeSystem.h"
#include "thread/TaskCollection.h"

#include <array>

namespace {
using testsupport::StdoutCapture;

constexpr int kMessageSize = 4;
TaskCollection* running = nullptr;  // what the bodies of the tasks work with

class Tasks : public RuntimeTest
{
protected:
    Tasks() { running = &m_tasks; }

    void run()
    {
        m_tasks.StartTasks();
        m_tasks.Join();
    }

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
    LogFacade::setLevel("[RTapi][SIGNAL]", LogLevel::Trace);
    LogFacade::setLevel("RTapi.TASKS", LogLevel::Trace);
    capture.clear();
    m_tasks.PrintModelState();
    EXPECT_EQ(capture.count("] twin      :64"), 1);
    EXPECT_LT(capture.text().find("] twin      :64"), capture.text().find("] other     : 0"));
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

void sendToSelf()
{
    char mail[kMessageSize + 1] = "mail";  // nothing behind the message itself may be looked at
    mail[kMessageSize] = '!';
    running->SendSignal(0xFFFFFFFE, 0);
    (void)running->WaitForSignal(0x2, 0);
    const fakesystem::NanosecondsAre startOfSecond(0);
    (void)running->WaitForSignal(0x2, 1);
    running->SendMail(mail, 0);
    running->WaitForMail(mail, 0);
}

TEST_F(Tasks, TellWhatTheyDo)
{
    LogFacade::inst().setLevel(LogLevel::Debug);
    StdoutCapture capture;
    m_tasks.CreateTask("talker", sendToSelf, kMessageSize);
    run();
    EXPECT_EQ(capture.count("<DEBUG> [RTapi.FIFO_MUTEX] ENTER Take Mutex 'talker'"),
              capture.count("<DEBUG> [RTapi.FIFO_MUTEX] ENTER Give Mutex 'talker'"));
    EXPECT_TRUE(capture.contains("ENTER Give Mutex 'talker'"));
    auto lines = capture.logLines();
    std::erase_if(lines, [](const std::string& line) { return line.find("FIFO_MUTEX") != line.npos; });
    EXPECT_EQ(lines, (Lines{"<DEBUG> [RTapi.TASKS] Create task 'talker' with mailboxsize 4",
                            "<DEBUG> [RTapi.TASK] Start task 'talker'",
                            "<DEBUG> [RTapi.THREAD] Start thread 'talker'",
                            "<DEBUG> [RTapi.TASK] Task 'talker' send signal '-2'",
                            "<DEBUG> [[RTapi][SIGNAL]] 'talker' SendSignal '-2'",
                            "<DEBUG> [[RTapi][SEM]]  talker:1 ",
                            "<DEBUG> [RTapi.TASK] Task 'talker' wait for signal '2'",
                            "<DEBUG> [[RTapi][SIGNAL]] 'talker' WaitForSignal",
                            "<DEBUG> [[RTapi][SEM]]  talker:1 ",
                            "<DEBUG> [[RTapi][SIGNAL]] 'talker' received signals -2",
                            "<DEBUG> [RTapi.TASK] Task 'talker' wait for signal '2'",
                            "<DEBUG> [[RTapi][SIGNAL]] 'talker' WaitForSignal",
                            "<DEBUG> [[RTapi][SEM]]  talker:0 ",
                            "<DEBUG> [[RTapi][SIGNAL]] 'talker' timeout",
                            "<DEBUG> [RTapi.TASK] Task 'talker' send mail 'mail'",
                            "<DEBUG> [[RTapi][MAILBOX]]  'talker' send mail",
                            "<DEBUG> [[RTapi][SEM]]  Mail:1 ",
                            "<DEBUG> [RTapi.TASK] Task 'talker' wait for mail",
                            "<DEBUG> [[RTapi][MAILBOX]] 'talker' WaitForMail",
                            "<DEBUG> [[RTapi][SEM]]  Mail:1 ",
                            "<DEBUG> [[RTapi][MAILBOX]] 'talker' receive mail"}));
}

TEST_F(Tasks, AreShownInThreeTables)
{
    LogFacade::inst().setLevel(LogLevel::Trace);
    m_tasks.CreateTask("a", idle, kMessageSize);
    m_tasks.CreateTask("longer_name", idle, 2);
    m_tasks.SendSignal(5, 1);
    char mail[] = "post";
    m_tasks.SendMail(mail, 0);
    LogFacade::inst().setLevel(LogLevel::Notic);
    for (const char* node : {"RTapi.TASKS", "[RTapi][SIGNAL]", "[RTapi][MAILBOX]"})
        LogFacade::setLevel(node, LogLevel::Trace);
    StdoutCapture capture;
    m_tasks.PrintModelState();
    EXPECT_EQ(capture.logLines(),
              (Lines{"<TRACE> [RTapi.TASKS] -------Task table-------",
                     "<TRACE> [RTapi.TASKS] Name      :threadId            :TaskId",
                     "<TRACE> [RTapi.TASKS] a         :0                    : 0",
                     "<TRACE> [RTapi.TASKS] longer_name:0                    : 1",
                     "<TRACE> [RTapi.TASKS] -------Signal Handler table-------",
                     "<TRACE> [RTapi.TASKS] Name      :receivedSignals",
                     "<TRACE> [[RTapi][SIGNAL]] a         : 0", "<TRACE> [[RTapi][SIGNAL]] longer_name: 5",
                     "<TRACE> [RTapi.TASKS] -------Mailbox table-------",
                     "<TRACE> [RTapi.TASKS] Name      :MaxDataSize:IsEmpty:IsFull:FifoFrontData:FifoBackData",
                     "<TRACE> [[RTapi][MAILBOX]] a         :         4:         0:         0:post:post",
                     "<TRACE> [[RTapi][MAILBOX]] longer_name:         2:         1:         0::"}));
}
}  // namespace
