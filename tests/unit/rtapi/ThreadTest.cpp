#include "FakeSystem.h"
#include "thread/Thread.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <semaphore>

namespace {
using testsupport::StdoutCapture;

class TestThread : public Thread
{
public:
    TestThread(const char* name, std::function<void(TestThread&, void*)> body)
        : Thread(name), m_body(std::move(body))
    {
    }
    std::string steps;

protected:
    void Setup() override { steps += "setup "; }
    void Execute(void* argument) override
    {
        m_body(*this, argument);
        steps += "executed";
    }

private:
    std::function<void(TestThread&, void*)> m_body;
};

using ThreadTest = RuntimeTest;

TEST_F(ThreadTest, RunsSetupAndThenItsBodyWithTheArgument)
{
    int value = 0;
    TestThread thread("worker", [](TestThread& self, void* argument) {
        *static_cast<int*>(argument) =
            self.isCurrent() && pthread_equal(self.GetId(), pthread_self()) ? 1 : 2;
    });
    EXPECT_FALSE(thread.isCurrent());
    thread.Start(&value);
    thread.Join();
    thread.Join();
    EXPECT_EQ(value, 1);
    EXPECT_EQ(thread.steps, "setup executed");
}

TEST_F(ThreadTest, EndsInExit)
{
    LogFacade::setLevel("RTapi.THREAD", LogLevel::Debug);
    StdoutCapture capture;
    TestThread thread("leaver", [](TestThread& self, void*) { self.Exit(); });
    thread.Start();
    thread.Join();
    EXPECT_EQ(thread.steps, "setup ");
    EXPECT_EQ(capture.logLines(), (Lines{"<DEBUG> [RTapi.THREAD] Start thread 'leaver'",
                                         "<DEBUG> [RTapi.THREAD] pthread_exit called with leaver"}));
}

TEST_F(ThreadTest, ReportsKillWithTheWordsReversed)
{
    std::signal(SIGPIPE, SIG_IGN);
    LogFacade::setLevel("RTapi.THREAD", LogLevel::Debug);
    std::binary_semaphore mayEnd{0};
    TestThread thread("victim", [&](TestThread&, void*) { mayEnd.acquire(); });
    thread.Start();
    StdoutCapture capture;
    thread.Kill();
    mayEnd.release();
    thread.Join();
    thread.Kill();
    EXPECT_EQ(capture.logLines(), (Lines{"<DEBUG> [RTapi.THREAD] pthread_kill called with victim - KO",
                                         "<DEBUG> [RTapi.THREAD] pthread_kill called with victim - OK"}));
}

void startWithoutSystemMemory()
{
    dup2(STDERR_FILENO, STDOUT_FILENO);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, ~std::size_t{0} / 4);
    pthread_setattr_default_np(&attributes);
    TestThread("refused", [](TestThread&, void*) {}).Start();
}

class EarlyBird : public Thread
{
public:
    EarlyBird() : Thread("early")
    {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        Start();
        Join();
    }
};

TEST_F(ThreadTest, EndsTheProcessWhenItCannotRun)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(startWithoutSystemMemory(), testing::ExitedWithCode(1),
                "<FATAL> .RTapi.THREAD. ERROR creating thread refused\n");
    EXPECT_EXIT(EarlyBird(), testing::ExitedWithCode(255),
                "<FATAL> .RTapi.THREAD. FATAL! Thread::Start .early. called from a constructor. Exit!\n");
}
}  // namespace
