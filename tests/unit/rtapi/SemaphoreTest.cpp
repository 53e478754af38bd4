#include "FakeSystem.h"
#include "semaphore/MutexPosix.h"
#include "semaphore/SemPosix.h"

namespace {
TEST(MutexPosix, ReportsAFailedWaitButWaitsOnAfterASignalHandler)
{
    MutexPosix mutex;
    mutex.SetMutexName("renamed");
    StdoutCapture capture;
    fakesystem::semWaitError = EINVAL;
    EXPECT_EQ(mutex.Lock(), -1);
    fakesystem::semWaitError = EINTR;
    EXPECT_EQ(mutex.Lock(), 0);
    EXPECT_EQ(mutex.Getvalue(), 0);
    EXPECT_EQ(mutex.Unlock(), 1);
    EXPECT_EQ(capture.logLines(), Lines{"<FATAL> [[RTapi][MUTEX]] Getvalue failed on 'renamed', errno = 22"});
}

template <class Semaphore>
void createWithoutSystemMemory()
{
    dup2(STDERR_FILENO, STDOUT_FILENO);
    fakesystem::semInitError = ENOMEM;
    const Semaphore semaphore("mine");
}

TEST(Semaphores, EndTheProcessWithStatus0WhenTheyCannotBeCreated)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(createWithoutSystemMemory<MutexPosix>(), testing::ExitedWithCode(0),
                "<FATAL> .*MUTEX.* Create failed on mine, errno = 12\n");
    EXPECT_EXIT(createWithoutSystemMemory<SemPosix>(), testing::ExitedWithCode(0),
                "<FATAL> .*SEM.* Create failed on mine, errno = 12\n");
}
}  // namespace
