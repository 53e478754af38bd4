// The chip misbehaves at random while a phone asks all the time.
#include "Endurance.h"
#include "Record.h"

#include <iostream>

namespace {
using efr32sim::Clock;
using efr32sim::EventKind;
using efr32sim::Milliseconds;

constexpr double kRate = 0.02;
constexpr Milliseconds kConnectLimit{1000};
constexpr Milliseconds kAnswerLimit{1000};
constexpr int kRequestsAfterwards = 20;
// A lost event is made up for after 10 s, a restart of the advertising chip that nobody noticed after 60 s. A
// line that was torn out makes the chip silent, and that is ended after 60 s, or 120 s the third time.
constexpr std::chrono::seconds kRecoveryLimit{180};

class Chaos : public Endurance
{
protected:
    Chaos() { std::ofstream made(kRecordPath); }

    /// One request, connecting first when there is no connection.
    bool isServed(const std::string& text)
    {
        const bool served =
            (phone.connected() || phone.connect(kConnectLimit)) && isAnswered(phone, text, 1, kAnswerLimit);
        answered += served ? 1 : 0;
        return served;
    }
    /// Requests differ in length, as those of every phone do. A reader that is out of step finds a packet's
    /// beginning only when it looks at the right place, and the same bytes over and over lead it past for
    /// ever.
    std::string nextRequest(const std::string& text, int limit)
    {
        ++asked;
        return text + std::to_string(asked) +
               std::string((asked * 37) % limit, static_cast<char>('a' + asked % 26));
    }
    void askUntil(Clock::time_point end)
    {
        while (Clock::now() < end)
            (void)isServed(nextRequest("request ", 300));
    }
    void expectServiceAgain()
    {
        const auto ended = Clock::now();
        ASSERT_TRUE(waitUntil([&] { return isServed(nextRequest("again ", 101)); }, kRecoveryLimit));
        longestRecovery =
            std::max(longestRecovery, std::chrono::duration_cast<Milliseconds>(Clock::now() - ended));
    }
    /// A phone repeats a request that has not been answered.
    void expectEveryAnswer()
    {
        for (int i = 0; i < kRequestsAfterwards; ++i) {
            const std::string request = nextRequest("afterwards ", 300);
            EXPECT_TRUE(waitUntil([&] { return isServed(request); })) << request;
        }
    }
    /// What the line makes of a request may be another request, but nothing of an answer may be changed,
    /// mixed or anybody else's.
    void expectOwnAnswers() const override
    {
        std::set<std::string> given;
        std::ifstream in(kRecordPath);
        for (std::string hex; in >> hex;)
            given.insert(hex);
        for (const std::string& answer : received)
            EXPECT_TRUE(given.contains(recordHex(answer))) << answer;
    }

    efr32sim::Phone phone{chip};
    Milliseconds longestRecovery{0};
    int asked = 0;
    int answered = 0;
    int torn = 0;
};

TEST_F(Chaos, IsSurvivedAndServiceReturns)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    const int firstSeed = setting("BRISCA_CHAOS_SEED", 0);  // to look at one seed alone
    for (int round = 0; round < rounds(2); ++round) {
        const int seed = firstSeed + round;
        SCOPED_TRACE("seed " + std::to_string(seed));
        auto events = chip.follow();
        chip.setChaos(seed, kRate);
        askUntil(Clock::now() + std::chrono::seconds(setting("BRISCA_CHAOS_SECONDS", 4)));
        chip.setChaos({});
        EXPECT_EQ(client->call("getBriscaState"), kFirmware);
        torn += static_cast<int>(events.drain(EventKind::LineHungUp));
        expectServiceAgain();
        expectEveryAnswer();
        endRound(round);
    }
    std::cout << rounds(2) << " seeds, " << torn << " lines torn out, served again within "
              << longestRecovery.count() << " ms, " << answered << " of " << asked << " requests answered\n";
}
}  // namespace
