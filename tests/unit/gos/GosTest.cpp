#include "GOS.h"
#include "Testing.h"

namespace {
using Lines = std::vector<std::string>;

// For what does not block to come back.
constexpr std::chrono::milliseconds kLongEnough{50};

std::string delays;  // what has been asked of the system
}  // namespace

extern "C" unsigned __wrap_sleep(unsigned seconds)
{
    delays += "sleep " + std::to_string(seconds) + " ";
    return 0;
}

extern "C" int __wrap_usleep(useconds_t microseconds)
{
    delays += "usleep " + std::to_string(microseconds) + " ";
    return 0;
}

namespace {
TEST(Gos, DelaysInSecondsAndTheRestInMicroseconds)
{
    for (const auto& [calls, milliseconds] : Rows<unsigned>{{"", 0},
                                                            {"usleep 2000 ", 2},
                                                            {"usleep 999000 ", 999},
                                                            {"sleep 1 ", 1000},
                                                            {"sleep 2 usleep 500000 ", 2500},
                                                            {"sleep 4294967 usleep 295000 ", 4294967295}}) {
        delays.clear();
        EXPECT_EQ(GOS_WaitForDelay(milliseconds), 1);
        EXPECT_EQ(delays, calls);
    }
}

TEST(Gos, MeasuresStringsUpToALimit)
{
    const std::string longText(70000, 'x');
    for (const auto& [text, limit, length] :
         Rows<std::uint16_t, std::uint16_t>{{"abc", 1, 2},
                                            {"abc", 0, 1},
                                            {"abc", 2, 3},
                                            {"abc", 3, 3},
                                            {"abc", 31, 3},
                                            {"", 0, 0},
                                            {nullptr, 5, 0},
                                            {"abc", 0xFFFF, 0},
                                            {"abc", 0xFFFE, 3},
                                            {longText.c_str(), 0xFFFE, 0xFFFF}})
        EXPECT_EQ(StrLenMax(text, limit), length) << limit;
}

TEST(Gos, LocksEachNumberedSemaphoreByItself)
{
    for (unsigned id = 0; id <= 4; ++id) {
        GOS_WaitForSemaphore(id);
        auto second = std::async(std::launch::async, [id] {
            GOS_WaitForSemaphore((id + 1) % 5);  // the others are free
            GOS_ReleaseSemaphore((id + 1) % 5);
            GOS_WaitForSemaphore(id);
        });
        EXPECT_EQ(second.wait_for(kLongEnough), std::future_status::timeout) << id;
        GOS_ReleaseSemaphore(id);
        second.get();
        GOS_ReleaseSemaphore(id);  // any thread may release
    }
}

TEST(Gos, ContinuesAtOnceOnASemaphoreThatDoesNotExist)
{
    StdoutCapture capture;
    GOS_WaitForSemaphore(5);
    GOS_ReleaseSemaphore(0xFFFFFFFF);
    EXPECT_EQ(capture.logLines(), (Lines{"<FATAL> [[KORA][GOS]] SemaphoreID 5 don't exist",
                                         "<FATAL> [[KORA][GOS]] SemaphoreID -1 don't exist"}));
}

TEST(Gos, IsNoTaskOnTheMainThread)
{
    StdoutCapture capture;
    EXPECT_EQ(GOS_GetCurrentTaskId(), 0xFFFF);
    EXPECT_EQ(GOS_WaitForSignal(1, 0), -1);
    EXPECT_EQ(GOS_GetTaskID("nobody"), -1);
    char buffer[4] = "x";
    GOS_SendSignal(1, 77);
    GOS_WaitForMail(77, buffer);
    EXPECT_EQ(GOS_RequestSendMail(77, buffer), 1);
    EXPECT_EQ(capture.logLines().size(), 7U);
}

TEST(Gos, RunsTasksUntilTheyEnd)
{
    static std::atomic<bool> mayEnd = false;
    static std::atomic<int> answer = 0;
    GOS_CreateTask(
        "other", [] {}, sizeof(int));
    GOS_CreateTask(
        "task",
        [] {
            while (!mayEnd)
                std::this_thread::yield();
            answer = GOS_GetCurrentTaskId() == GOS_GetTaskID("task") ? 42 : -1;
        },
        4);
    EXPECT_EQ(GOS_GetTaskID("task"), 1);
    GOS_StartTasks();
    auto joined = std::async(std::launch::async, GOS_Join);
    EXPECT_EQ(joined.wait_for(kLongEnough), std::future_status::timeout);
    mayEnd = true;
    joined.get();
    EXPECT_EQ(answer, 42);
}
}  // namespace
