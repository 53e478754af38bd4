// The chip misbehaves at random while a phone asks all the time.
#include "Endurance.h"
#include "Ledger.h"
#include "Wait.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace {
using efr32sim::Clock;
using efr32sim::EventKind;
using efr32sim::Milliseconds;

constexpr double kRate = 0.02;
constexpr Milliseconds kConnectLimit{1000};
constexpr Milliseconds kAnswerLimit{1000};
// A lost event is made up for after 10 s, a restart of the advertising chip that nobody noticed after 60 s.
constexpr std::chrono::seconds kRecoveryLimit{100};

int asked(const char* variable, int otherwise)
{
    const char* const text = std::getenv(variable);
    return text != nullptr ? std::atoi(text) : otherwise;
}

std::chrono::seconds duration()
{
    return std::chrono::seconds(asked("BRISCA_CHAOS_SECONDS", 4));
}

class Chaos : public Endurance
{
protected:
    /// One request, connecting first when there is no connection.
    bool isServed(const std::string& text)
    {
        Asked request{text, Clock::now()};
        request.outcome = outcomeOf(text);
        request.ended = Clock::now();
        ledger.add(request);
        return request.outcome == Asked::Outcome::Answered;
    }
    Asked::Outcome outcomeOf(const std::string& text)
    {
        if (!(phone.connected() || phone.connect(kConnectLimit)) || !phone.writeMessage(text))
            return Asked::Outcome::NotConnected;
        while (const auto message = phone.waitMessage(kAnswerLimit)) {
            const std::string answer(message->begin(), message->end());
            ledger.addAnswer(answer);
            if (answer == "echo:" + text)
                return Asked::Outcome::Answered;
        }
        return Asked::Outcome::Unanswered;
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
        ASSERT_TRUE(
            testsupport::waitUntil([&] { return isServed(nextRequest("again ", 101)); }, kRecoveryLimit));
        longestRecovery =
            std::max(longestRecovery, std::chrono::duration_cast<Milliseconds>(Clock::now() - ended));
    }
    /// The stack opens the line once an entry: a line that was torn out needs another one.
    void restartByHand()
    {
        ++helped;
        chip.plugIn();
        (void)client->pendingSignals();
        client->send("BriscaRestart");
        ASSERT_TRUE(awaitSignal("bleIsStarted"));
    }

    efr32sim::Phone phone{chip};
    Ledger ledger{chip};
    Milliseconds longestRecovery{0};
    int asked = 0;
    int helped = 0;
};

TEST_F(Chaos, IsSurvivedAndServiceReturns)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    const int firstSeed = ::asked("BRISCA_CHAOS_SEED", 0);  // to look at one seed alone
    for (int round = 0; round < rounds(2); ++round) {
        const int seed = firstSeed + round;
        SCOPED_TRACE("seed " + std::to_string(seed));
        auto events = chip.follow();
        chip.setChaos(seed, kRate);
        askUntil(Clock::now() + duration());
        chip.setChaos({});
        EXPECT_EQ(client->call("getBriscaState"), kFirmware);
        if (events.drain(EventKind::LineHungUp) > 0) {
            ASSERT_NO_FATAL_FAILURE(restartByHand());
        }
        expectServiceAgain();
        ledger.settle();
        endRound(round);
    }
    std::cout << rounds(2) << " seeds, " << helped << " lines torn out, served again within "
              << longestRecovery.count() << " ms: " << ledger.summary();
}
}  // namespace
