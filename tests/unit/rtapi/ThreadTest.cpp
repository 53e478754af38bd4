#include "FakeSystem.h"
#include "thread/Thread.h"

#include <pthread.h>

namespace {
void startWithoutSystemMemory()
{
    dup2(STDERR_FILENO, STDOUT_FILENO);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, ~std::size_t{0} / 4);
    pthread_setattr_default_np(&attributes);
    Thread("refused").Start();
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

TEST(Threads, EndTheProcessWhenTheyCannotRun)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(startWithoutSystemMemory(), testing::ExitedWithCode(1),
                "<FATAL> .RTapi.THREAD. ERROR creating thread refused\n");
    EXPECT_EXIT(EarlyBird(), testing::ExitedWithCode(255),
                "<FATAL> .RTapi.THREAD. FATAL! Thread::Start .early. called from a constructor. Exit!\n");
}
}  // namespace
