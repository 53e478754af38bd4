// The chip misbehaves at random while a phone asks all the time.
#include "Endurance.h"
#include "Ledger.h"
#include "Wait.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>

namespace {
using efr32sim::Clock;
using efr32sim::Event;
using efr32sim::EventKind;
using efr32sim::Milliseconds;

constexpr double kRate = 0.02;
constexpr Milliseconds kConnectLimit{1000};
constexpr Milliseconds kAnswerLimit{1000};
// The service starts advertising again 10 s after it has noticed that it is silent.
constexpr std::chrono::seconds kRecoveryLimit{40};

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
    Chaos()
    {
        // The boots that the host has noticed are told at this level.
        std::ofstream("/evse/data/log.cfg") << "GLOBAL : NOTIC\nNCP_MANAGER : DEBUG\n";
    }

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
        while (Clock::now() < end) {
            (void)isServed(nextRequest("request ", 300));
        }
    }
    bool isServedAgain()
    {
        return testsupport::waitUntil([&] { return isServed(nextRequest("again ", 101)); }, kRecoveryLimit);
    }
    /// What the host cannot know any more: a line that was torn out, a boot or an end of a connection whose
    /// event did not reach it.
    [[nodiscard]] bool hostIsMisled(std::size_t from) const
    {
        const auto noticed = [this, from](const char* text) {
            return static_cast<std::ptrdiff_t>(linesWith({text}, from).size());
        };
        const auto history = chip.events().history();
        const auto happened = [&](auto condition) {
            return std::count_if(history.begin(), history.end(), [&](const Event& event) {
                return event.sequence > seedBegan && condition(event);
            });
        };
        return happened([](const Event& event) { return event.kind == EventKind::LineHungUp; }) > 0 ||
               happened([](const Event& event) {
                   return event.kind == EventKind::ModeChanged && event.text("mode") == "firmware";
               }) > noticed("NCP boot up") ||
               happened([](const Event& event) { return event.kind == EventKind::Disconnected; }) >
                   noticed("Connect closed");
    }
    void restartByHand()
    {
        ++helped;
        (void)client->pendingSignals();
        client->send("BriscaRestart");
        ASSERT_TRUE(awaitSignal("bleIsStarted"));
        ASSERT_TRUE(isServedAgain());
    }
    efr32sim::Phone phone{chip};
    Ledger ledger{chip};
    std::uint64_t seedBegan = 0;
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
        seedBegan = chip.events().history().back().sequence;
        const auto before = mark();
        chip.setChaos(seed, kRate);
        askUntil(Clock::now() + duration());
        chip.setChaos({});
        chip.plugIn();
        EXPECT_EQ(client->call("getBriscaState"), kFirmware);
        if (!isServedAgain()) {
            EXPECT_TRUE(hostIsMisled(before));
            ASSERT_NO_FATAL_FAILURE(restartByHand());
        }
        ledger.settle();
        endRound(round);
    }
    std::cout << rounds(2) << " seeds, " << helped << " times restarted by hand: " << ledger.summary();
}
}  // namespace
