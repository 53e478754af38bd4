#pragma once

#include "efr32sim/Event.h"
#include "efr32sim/Fault.h"

#include <map>
#include <optional>
#include <random>
#include <vector>

namespace efr32sim {
/// Decides at each opportunity whether something goes wrong: first what was asked for, then chance.
/// Not thread-safe.
class FaultPlan
{
public:
    FaultPlan(EventLog& events, std::optional<std::uint64_t> chaosSeed, double chaosRate);

    void add(const Fault& fault) { m_faults.push_back(fault); }
    void clear() { m_faults.clear(); }
    /// Begins chaos, with the numbers of its seed from their start, or ends it.
    void setChaos(std::optional<std::uint64_t> seed, double rate);

    /// An opportunity for a fault of this kind, concerning the packet @p id if any; reports what it returns.
    [[nodiscard]] std::optional<Fault> take(FaultKind kind, std::optional<CommandId> id = {},
                                            PacketType type = PacketType::Any);

    /// Happenings that come by themselves. Asked about once a chaos period; none without chaos.
    enum class Mishap { None, Reboot, Disconnect, Burst, Silence, HangUp };
    [[nodiscard]] bool chaotic() const { return m_seed.has_value(); }
    [[nodiscard]] Mishap mishap();

private:
    [[nodiscard]] std::optional<Fault> planned(FaultKind kind, std::optional<CommandId> id, PacketType type);
    [[nodiscard]] std::optional<Fault> random(FaultKind kind);
    /// The random numbers of one kind of opportunity. Each kind has its own, so that the n-th opportunity
    /// of a kind fares the same in every run, whatever happens between.
    std::mt19937_64& dice(int stream);
    [[nodiscard]] static double fraction(std::mt19937_64& dice);

    EventLog& m_events;
    std::vector<Fault> m_faults;
    std::optional<std::uint64_t> m_seed;
    double m_rate;
    std::map<int, std::mt19937_64> m_dice;
};
}  // namespace efr32sim
