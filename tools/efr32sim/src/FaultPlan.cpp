#include "FaultPlan.h"

#include <algorithm>
#include <array>

namespace efr32sim {
namespace {
constexpr int kMishapStream = 1000;

struct Weight
{
    FaultKind kind;
    double weight;
};
/// How often chance picks each fault, in proportion to the chaos rate. An endless silence is a mishap.
constexpr std::array kWeights{
    Weight{FaultKind::SilentReset, 2.0},
    Weight{FaultKind::NoisyPrompt, 2.0},
    Weight{FaultKind::NoiseBeforePacket, 1.0},
    Weight{FaultKind::CutPacket, 0.5},
    Weight{FaultKind::OversizeHeader, 0.5},
    Weight{FaultKind::LostResponse, 1.0},
    Weight{FaultKind::LateResponse, 1.0},
    Weight{FaultKind::ErrorResponse, 0.5},
    Weight{FaultKind::EventBeforeResponse, 1.0},
    Weight{FaultKind::RefuseNotification, 1.0},
    Weight{FaultKind::XmodemAnswer, 0.5},
    Weight{FaultKind::CorruptBlock, 1.0},
    Weight{FaultKind::LostBoot, 1.0},
};

double weightOf(FaultKind kind)
{
    const auto* found = std::find_if(kWeights.begin(), kWeights.end(),
                                     [kind](const Weight& entry) { return entry.kind == kind; });
    return found == kWeights.end() ? 0 : found->weight;
}
}  // namespace

FaultPlan::FaultPlan(EventLog& events, std::optional<std::uint64_t> chaosSeed, double chaosRate)
    : m_events(events), m_seed(chaosSeed), m_rate(chaosRate)
{
}

void FaultPlan::setChaos(std::optional<std::uint64_t> seed, double rate)
{
    m_seed = seed;
    m_rate = rate;
    m_dice.clear();
}

std::mt19937_64& FaultPlan::dice(int stream)
{
    const auto [place, added] = m_dice.try_emplace(stream);
    if (added)
        place->second.seed(*m_seed * 1009 + static_cast<std::uint64_t>(stream));
    return place->second;
}

double FaultPlan::fraction(std::mt19937_64& dice)
{
    return static_cast<double>(dice() >> 11) * 0x1p-53;
}

std::optional<Fault> FaultPlan::planned(FaultKind kind, std::optional<CommandId> id, PacketType type)
{
    for (auto fault = m_faults.begin(); fault != m_faults.end(); ++fault) {
        if (fault->kind != kind || (fault->command && fault->command != id) ||
            (fault->type != PacketType::Any && fault->type != type))
            continue;
        if (fault->skip > 0) {
            --fault->skip;
            continue;
        }
        Fault taken = *fault;
        if (fault->count == 1)
            m_faults.erase(fault);
        else if (fault->count > 1)
            --fault->count;
        return taken;
    }
    return std::nullopt;
}

std::optional<Fault> FaultPlan::random(FaultKind kind)
{
    if (!m_seed)
        return std::nullopt;
    std::mt19937_64& numbers = dice(static_cast<int>(kind));
    if (fraction(numbers) >= m_rate * weightOf(kind))
        return std::nullopt;
    Fault fault{.kind = kind};
    fault.delay = Milliseconds(20 + static_cast<int>(fraction(numbers) * 500));
    fault.length = 1 + static_cast<std::size_t>(fraction(numbers) * 6);
    fault.bytes = {static_cast<std::uint8_t>(numbers()), static_cast<std::uint8_t>(numbers())};
    return fault;
}

std::optional<Fault> FaultPlan::take(FaultKind kind, std::optional<CommandId> id, PacketType type)
{
    auto fault = planned(kind, id, type);
    const bool by_chance = !fault;
    if (!fault)
        fault = random(kind);
    if (fault) {
        m_events.publish(EventKind::Fault, {{"fault", toString(kind)},
                                            {"class", id ? id->classId : -1},
                                            {"id", id ? id->id : -1},
                                            {"length", static_cast<std::int64_t>(fault->length)},
                                            {"bytes", fault->bytes},
                                            {"chaos", by_chance ? 1 : 0}});
    }
    return fault;
}

FaultPlan::Mishap FaultPlan::mishap()
{
    constexpr std::array kMishaps{Mishap::Reboot,  Mishap::Disconnect, Mishap::Burst,
                                  Mishap::Silence, Mishap::Burst,      Mishap::HangUp};
    std::mt19937_64& numbers = dice(kMishapStream);
    if (fraction(numbers) >= m_rate)
        return Mishap::None;
    return kMishaps[numbers() % kMishaps.size()];
}
}  // namespace efr32sim
