#include "Testing.h"
#include "facade/Log.h"

#include <climits>

namespace {
// A start late in its second makes most elapsed times borrow one.
constexpr long long kStartNs = 77'900'000'999;
std::atomic<long long> elapsedNs = 0;
}  // namespace

extern "C" int __real_clock_gettime(clockid_t clock, timespec* time);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* time)
{
    if (clock != CLOCK_MONOTONIC_RAW)
        return __real_clock_gettime(clock, time);
    const long long now = kStartNs + elapsedNs;
    *time = {static_cast<time_t>(now / 1'000'000'000), static_cast<long>(now % 1'000'000'000)};
    return 0;
}

/// Sets the time that the log shows as elapsed; CLOCK_MONOTONIC_RAW stands still otherwise.
static void setElapsed(long seconds, long microseconds)
{
    elapsedNs = seconds * 1'000'000'000LL + microseconds * 1000LL;
}

namespace {
LogNode& node(const char* name)
{
    return *LogFacade::inst().findOrCreateNode(name, -1);
}

class LogLine : public testing::Test
{
protected:
    LogLine()
    {
        (void)getTimestamp();  // the first call is the start of the elapsed time
        setElapsed(12, 45678);
    }
    ~LogLine() override { setElapsed(0, 0); }

    StdoutCapture m_capture;
};

TEST_F(LogLine, PutsEveryFieldIntoItsColumns)
{
    // clang-format off
    for (const auto& [name, seconds, microseconds, file, line, position] :
         Rows<long, long, const char*, int, const char*>{
        {"an ordinary line", 12, 45678, "/src/comm/An760.cpp", 123, "0012.0456 An760.cpp                :0123: "},
        {"no directory, and time zero", 0, 99, "An760.cpp", 1, "0000.0000 An760.cpp                :0001: "},
        {"no file name", 9999, 999999, "/src/", 9999, "9999.9999                          :9999: "},
        {"a full field", 0, 0, "/FileNameOfTwentyFiveChars", 12, "0000.0000 FileNameOfTwentyFiveChars:0012: "},
        {"one too long", 0, 0, "/FileNameOfTwentySix_Chars_", 12, "0000.0000 FileNameOfTwentySix_Chars_:0012:"},
        {"no room for the line number", 0, 0, "/FileNameThatReachesOverItsWholeField.cpp", 12, "0000.0000 FileNameThatReachesOverItsWholeF"},
        {"a line number of five digits", 0, 0, "/a.cpp", 12345, "0000.0000 a.cpp                    :12345:"},
        {"ten characters of time", 10000, 100, "/a.cpp", 1, "10000.0001a.cpp                    :0001: "},
        {"eleven characters of time", 123456, 789000, "/a.cpp", 1, "123456.789a.cpp                    :0001: "}}) {
        // clang-format on
        SCOPED_TRACE(name);
        m_capture.clear();
        setElapsed(seconds, microseconds);
        log_event(node("test.columns"), LogLevel::Info, file, line, nullptr, "text %d", 7);
        EXPECT_EQ(m_capture.text(), position + "<INFO > [test.columns] text 7\n"s);
    }
}

TEST_F(LogLine, CutsWhatDoesNotFit)
{
    constexpr std::size_t kWholeLine = 1022;  // line feed included
    const std::string prefix = "0012.0456 a.c                      :0001: <INFO > [test.cut] ";
    const std::size_t room = kWholeLine - 1 - prefix.size();
    const auto logged = [&](const char* function, const std::string& message) {
        m_capture.clear();
        log_event(node("test.cut"), LogLevel::Info, "a.c", 1, function, "%s", message.c_str());
        return m_capture.text();
    };
    const std::string whole(room - 1, 'x');
    EXPECT_EQ(logged(nullptr, whole), prefix + whole + "\n");
    for (const std::size_t length : {room, room + 1, std::size_t{100'000}})
        EXPECT_EQ(logged(nullptr, std::string(length, 'x')), prefix + whole + "x\n");
    EXPECT_EQ(logged("start", "message"), prefix + "start() message\n");
    const std::string function(room - 4, 'f');
    EXPECT_EQ(logged(function.c_str(), "message"), prefix + function + "() m\n");
    EXPECT_EQ(logged(std::string(5000, 'f').c_str(), "message"), prefix + std::string(room, 'f') + "\n");
    log_event(node(std::string(3000, 'n').c_str()), LogLevel::Info, "a.c", 1, nullptr, "message");
    EXPECT_EQ(m_capture.lines().back().size(), kWholeLine - 1);
}

/// The message as the C library formats it, and as it stands in the log.
#define EXPECT_PRINTF(...)                                                                     \
    do {                                                                                       \
        char expected[256];                                                                    \
        std::snprintf(expected, sizeof expected, __VA_ARGS__);                                 \
        m_capture.clear();                                                                     \
        log_event(node("test.printf"), LogLevel::Info, "a.c", 1, nullptr, __VA_ARGS__);        \
        EXPECT_EQ(m_capture.logLines(),                                                        \
                  std::vector<std::string>{std::string("<INFO > [test.printf] ") + expected}); \
    } while (false)

TEST_F(LogLine, FormatsAsPrintfDoes)
{
    const char* volatile none = nullptr;  // volatile hides the value from the compiler, which would object
    const char unterminated[] = {'a', 'b', 'c', 'd'};
    EXPECT_PRINTF("%d %d %u %u", INT_MIN, INT_MAX, 0u, UINT_MAX);
    EXPECT_PRINTF("<%s> <%s> %d", "text", "", -1);
    EXPECT_PRINTF("%d and %s", 1, none);
    EXPECT_PRINTF("%s then %-6s|%5d|%02X|%.*s", "first", "left", 42, 7, 3, unterminated);
    EXPECT_PRINTF("%ld %lu %zu %c%c %x", LONG_MIN, ULONG_MAX, sizeof none, 'a', 'b', 255u);
    EXPECT_PRINTF("one%ctwo", '\0');
    EXPECT_PRINTF("%s%ctwo", "one", '\0');
}

TEST_F(LogLine, InterpretsOnlyTwoConversionsASecondTime)
{
    for (const auto& [text, expected] : Rows<const char*>{
             {"100%%", "100%"},
             {"%%%%", "%%"},
             {"100%", "100%"},
             {"%s%n%5$d", "%s%n%5$d"},
             {"%m", "No such file or directory"},
             {"a%%m%m", "a%mNo such file or directory"},
             {"%%s", "%s"},
             {"%", "%"},
         }) {
        SCOPED_TRACE(text);
        m_capture.clear();
        errno = ENOENT;
        log_event(node("test.percent"), LogLevel::Info, "a.c", 1, nullptr, "%s", text);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(m_capture.logLines(),
                  std::vector<std::string>{std::string("<INFO > [test.percent] ") + expected});
    }
}

TEST_F(LogLine, TimestampIsBoundedByItsBuffer)
{
    char text[8] = "???????";
    EXPECT_EQ(timestamp(text, 5), 9);
    EXPECT_STREQ(text, "0012");
    EXPECT_EQ(text[5], '?');
    setElapsed(3, 250000);
    const LogTime elapsed = getTimestamp();
    EXPECT_EQ(elapsed.seconds, 3);
    EXPECT_EQ(elapsed.microseconds, 250000);
}

TEST_F(LogLine, IsWrittenAndItsArgumentsEvaluatedOnlyAtOrAboveTheNodesLevel)
{
    LogNode* const threshold = &node("test.threshold");
    threshold->setLevel(LogLevel::Warn);
    int evaluated = 0;
    for (const LogLevel statement : {LogLevel::None, LogLevel::Warn, LogLevel::Notic, LogLevel::Trace})
        BRISCA_LOG(threshold, statement, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 2);
    EXPECT_EQ(m_capture.lines().size(), 2U);
}

TEST_F(LogLine, StaysWholeWhenManyThreadsLog)
{
    constexpr int kThreads = 4;
    constexpr int kLines = 300;
    const LogNode& shared = node("test.threads");
    const auto text = [](int thread, int line) {
        return std::to_string(thread) + " " + std::to_string(line) +
               std::string(static_cast<unsigned>(line), '.');
    };
    std::vector<std::jthread> threads;
    std::vector<std::string> expected;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int line = 0; line < kLines; ++line)
                log_event(shared, LogLevel::Info, "a.c", 1, nullptr, "%s", text(thread, line).c_str());
        });
        for (int line = 0; line < kLines; ++line)
            expected.push_back("<INFO > [test.threads] " + text(thread, line));
    }
    threads.clear();
    auto lines = m_capture.logLines();
    std::ranges::sort(lines);
    std::ranges::sort(expected);
    EXPECT_EQ(lines, expected);
}

TEST(LogExit, ThreadsMayLogWhileTheProcessEnds)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto exitWhileLogging = [] {
        StdoutCapture quiet;
        std::thread([busy = &node("test.exit")] {
            while (true)
                BRISCA_ERROR(busy, "still here");
        }).detach();
        while (!quiet.contains("still here"))
            std::this_thread::yield();
        std::exit(0);
    };
    EXPECT_EXIT(exitWhileLogging(), testing::ExitedWithCode(0), "");
}
}  // namespace
