#pragma once

#include "Station.h"

#include <cstddef>
#include <set>

/// What a process costs its machine at one moment.
struct Footprint
{
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    std::size_t children = 0;
    long residentKb = 0;

    static Footprint of(const Process& process);
    /// The same threads and children as @p other, and no more descriptors.
    [[nodiscard]] bool isWithin(const Footprint& other) const;
};

/// Many rounds of the same on one station. The rounds of the short form are the test's own, those of the long
/// form come from the environment (BRISCA_ENDURANCE_ROUNDS). At the end the station must have the threads and
/// children that it had after the tenth round (after half of the rounds when they are fewer than 20), no more
/// descriptors and little more memory, and neither conversation of the serial line may have leaked into the
/// other.
class Endurance : public Station
{
protected:
    Endurance();
    void TearDown() override;

    [[nodiscard]] int rounds(int shortForm);
    /// Waits for a signal, skipping those before it.
    [[nodiscard]] bool awaitSignal(const std::string& name);
    /// Sends a request until it is answered, as CoAP does: a response of the chip that takes longer than 10
    /// ms counts as lost, the fragment then goes out twice, and the phone drops the message.
    void expectAnswer(efr32sim::Phone& phone, const std::string& request);
    /// False when no answer has come after @p attempts of @p limit each.
    [[nodiscard]] bool isAnswered(efr32sim::Phone& phone, const std::string& request, int attempts,
                                  efr32sim::Milliseconds limit);
    /// A phone connects, asks and is answered.
    void expectService(const std::string& request);
    void endRound(int round);
    /// At the end: every message that a phone has got is the answer to a request that one has sent.
    virtual void expectOwnAnswers() const;

    std::vector<std::string> received;  // by phones

private:
    void expectSameFootprint() const;
    void expectCleanLine();
    void reportRow() const;

    std::vector<Footprint> m_footprints;  // settled, last
    std::set<std::string> m_expected;
    int m_repeated = 0;
    int m_rounds = 0;
};
