#include "LinkWatch.h"
#include "SilenceWatch.h"
#include "Testing.h"

namespace {
using State = LinkI::State;

/// A link whose state and answers a row tells.
class FakeLink : public LinkI
{
public:
    State look() const override
    {
        ++looks;
        return letter == 'b'   ? State::Booting
               : letter == 's' ? State::OffAir
               : letter == 'a' ? State::Advertising
                               : State::Connected;
    }
    tGBS_LinkCheck check() override
    {
        return note('C', doubts) ? GBS_LINK_CHECK_DOUBTED : GBS_LINK_CHECK_AGREES;
    }
    void advertise() override { note('A', ""); }
    bool refresh() override { return !note('R', failures); }

    char letter = '.';
    std::size_t second = 0;
    mutable std::size_t looks = 0;
    std::string doubts;
    std::string failures;
    std::string done;

private:
    /// @return whether it is among these
    bool note(char what, const std::string& these)
    {
        const std::string text = std::to_string(second) + what;
        done += (done.empty() ? "" : " ") + text;
        return these.find(text) != std::string::npos;
    }
};

TEST(LinkWatchTest, ActsOnceAPeriodThatTheLinkStaysAsItIs)
{
    const std::string minute(60, 'a');
    const struct
    {
        const char* name;
        std::string seconds;        // '.' nothing may be done, 'b'ooting, off the air ('s'), 'a'dvertising,
                                    // 'c'onnected; 'e': connected, an event comes
        std::string done;           // second and first letter of what is done: Advertise, Check, Refresh
        std::string doubts = "";    // checks whose answer is in doubt
        std::string failures = "";  // refreshes that fail
    } rows[] = {
        {"never while stopped", "...............", ""},
        {"each second that the chip does not boot", ".bbbcc", "2C 3C"},
        {"after ten seconds off the air", ".ssssssssssss", "11A"},
        {"not when that ends in time", "ssssssssss.sssss", ""},
        {"again after ten more", "sssssssssssssssssssssssss", "10A 20A"},
        {"connected and quiet", "ccccccccccccccccccccc", "10C 20C"},
        {"connected with events", "cccccecccccccccceccccccccccc", "15C 26C"},
        {"advertising for a minute, twice", minute + minute + "a",
         "10C 20C 30C 40C 50C 60C 60R 70C 80C 90C 100C 110C 120C 120R"},
        {"interrupted by a phone", minute + "c" + minute, "10C 20C 30C 40C 50C 71C 81C 91C 101C 111C"},
        {"doubted once", minute.substr(0, 25), "10C 11C 21C", "10C"},
        {"doubted for good", minute.substr(0, 25), "10C 11C 21C 22C", "10C 11C 21C 22C"},
        {"refreshed in vain, each time once more", minute + minute.substr(0, 21),
         "10C 20C 30C 40C 50C 60C 60R 61C 61R 71C 71R 72C 72R", "", "60R 61R 71R"},
        {"off the air by a refresh", minute + "as", "10C 20C 30C 40C 50C 60C 60R 61A", "", "60R"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        LinkWatch watch;
        FakeLink link;
        link.doubts = row.doubts;
        link.failures = row.failures;
        for (; link.second < row.seconds.size(); ++link.second) {
            link.letter = row.seconds[link.second];
            for (auto within = 0ms; within < 1s; within += 10ms)
                watch.tick(LinkWatch::Clock::time_point{} + std::chrono::seconds(link.second) + within,
                           link.letter == '.' ? nullptr : &link, link.letter == 'e' && within == 0ms);
        }
        EXPECT_EQ(link.done, row.done);
        EXPECT_EQ(link.looks,
                  2 * (row.seconds.size() - static_cast<std::size_t>(std::ranges::count(row.seconds, '.'))))
            << "two a second";
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
