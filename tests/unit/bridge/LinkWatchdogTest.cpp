#include "LinkWatchdog.h"
#include "SilenceWatch.h"
#include "Testing.h"

namespace {
using Link = LinkWatchdog::Link;

Link linkOf(char letter)
{
    return letter == '.'   ? Link::Stopped
           : letter == 'b' ? Link::Booting
           : letter == 's' ? Link::OffAir
           : letter == 'a' ? Link::Advertising
                           : Link::Connected;
}

TEST(LinkWatchdogTest, AlarmsOnceAPeriodThatTheLinkStaysAsItIs)
{
    const std::string minute(60, 'a');
    const struct
    {
        const char* name;
        std::string seconds;  // 'b'ooting, off the air ('s'), 'a'dvertising, 'c'onnected; 'e': connected, an
                              // event comes
        std::string alarms;   // second and first letter of what is to be done
        std::string refreshes = "";  // those that succeed
        std::string again = "";      // those that are to be tried again
    } rows[] = {
        {"never while stopped", "...............", ""},
        {"each second that the chip does not boot", ".bbbcc", "2C 3C"},
        {"after ten seconds off the air", ".ssssssssssss", "11A"},
        {"not when that ends in time", "ssssssssss.sssss", ""},
        {"again after ten more", "sssssssssssssssssssssssss", "10A 20A"},
        {"connected and quiet", "ccccccccccccccccccccc", "10C 20C"},
        {"connected with events", "cccccecccccccccceccccccccccc", "15C 26C"},
        {"advertising for a minute, twice", minute + minute + "a",
         "10C 20C 30C 40C 50C 60R 70C 80C 90C 100C 110C 120R", "60R 120R"},
        {"refreshed in vain", minute + minute.substr(0, 21), "10C 20C 30C 40C 50C 60R 70R 80R", "80R"},
        {"interrupted by a phone", minute + "c" + minute, "10C 20C 30C 40C 50C 71C 81C 91C 101C 111C"},
        {"doubted once", minute.substr(0, 25), "10C 11C 21C", "", "10C"},
        {"refreshed again, each time once", minute + minute.substr(0, 21),
         "10C 20C 30C 40C 50C 60R 61R 71R 72R", "", "60R 61R 71R"},
        {"off the air by a refresh", minute + "as", "10C 20C 30C 40C 50C 60R 61A", "", "60R"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LinkWatchdog::Clock::time_point start{};
        LinkWatchdog watchdog;
        std::string alarms;
        std::size_t looks = 0;
        for (std::size_t second = 0; second < row.seconds.size(); ++second) {
            const char letter = row.seconds[second];
            const auto look = [&] {
                ++looks;
                return linkOf(letter);
            };
            for (auto within = 0ms; within < 1s; within += 10ms) {
                const auto now = start + std::chrono::seconds(second) + within;
                const LinkWatchdog::Alarm alarm = watchdog.tick(now, look);
                if (letter == 'e' && within == 0ms)
                    watchdog.eventCame(now);
                if (alarm == LinkWatchdog::Alarm::None)
                    continue;
                const std::string text = std::to_string(second) + " ACR"[static_cast<int>(alarm)];
                if (row.refreshes.find(text) != std::string::npos)
                    watchdog.refreshed();
                if (row.again.find(text) != std::string::npos)
                    watchdog.again();
                alarms += (alarms.empty() ? "" : " ") + text;
            }
        }
        EXPECT_EQ(alarms, row.alarms);
        EXPECT_EQ(looks, 2 * row.seconds.size()) << "two a second";
    }
}

/// Minutes in which the chip answers ('.') or not ('s') -> seconds of the alarms: Warn, Reenter. A chip that
/// is reset falls silent again at once, or answers for a moment first; the watch sees the same.
TEST(SilenceWatchTest, ReportsASilenceAndAsksForAResetEachTimeLater)
{
    const struct
    {
        const char* name;
        std::string minutes;
        std::string alarms;
    } rows[] = {
        {"a chip that answers", "..........", ""},
        {"one that stays dumb", std::string(48, 's'),
         "30W 60R 91W 121R 152W 242R 273W 483R 514W 964R 995W 1865R 1896W 2766R 2797W"},
        {"one that comes back for long enough", "sss" + std::string(20, '.') + "ss",
         "30W 60R 91W 121R 152W 1409W 1439R 1470W"},
        {"one that does not", "sss" + std::string(10, '.') + "sss", "30W 60R 91W 121R 152W 809W 899R 930W"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const SilenceWatch::Clock::time_point start{};
        SilenceWatch watch(30s);
        std::string alarms;
        std::chrono::seconds answered{0};
        for (auto now = 0s; now < row.minutes.size() * 60s; ++now) {
            if (row.minutes[static_cast<std::size_t>(now / 1min)] == '.')
                answered = now;
            const auto alarm = watch.tick(start + 24h + now, now - answered);
            if (alarm == SilenceWatch::Alarm::None)
                continue;
            alarms += (alarms.empty() ? "" : " ") + std::to_string(now / 1s) + " WR"[static_cast<int>(alarm)];
            if (alarm == SilenceWatch::Alarm::Reenter)
                answered = now + 1s;
        }
        EXPECT_EQ(alarms, row.alarms);
    }
}
}  // namespace
