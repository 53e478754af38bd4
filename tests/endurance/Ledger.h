#pragma once

#include "efr32sim/Chip.h"

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// A request of the phone.
struct Asked
{
    enum class Outcome { Answered, Unanswered, NotConnected };

    std::string text;
    efr32sim::Clock::time_point begun;
    efr32sim::Clock::time_point ended = {};  ///< answered, or given up
    Outcome outcome = Outcome::Unanswered;
};

/// Follows the bytes of the chip as the packet format alone has them read: a reader that is out of step takes
/// what follows for the missing bytes, then looks byte by byte for the next beginning. Tells for every packet
/// whether the host can have got it.
class LineModel
{
public:
    struct Packet
    {
        efr32sim::Clock::time_point time;
        efr32sim::CommandId id;
        efr32sim::Bytes payload;
        const char* loss;  ///< why the host cannot have got it; null when it can
    };

    /// Bytes of several packets that the reader takes for a fragment of the phone's.
    struct Stray
    {
        efr32sim::Clock::time_point time;
        std::size_t slot;
    };

    void follow(const efr32sim::Event& event);
    [[nodiscard]] const std::vector<Stray>& strays() const { return m_strays; }
    [[nodiscard]] const std::vector<Packet>& packets() const { return m_packets; }
    /// The most packets in a row that were sent whole and lost because the reader was out of step.
    [[nodiscard]] std::size_t longestLoss() const { return m_longestLoss; }

private:
    static constexpr std::size_t kUncut = SIZE_MAX;

    void deliver();
    void read(efr32sim::ByteSpan bytes);
    void noteStray();

    std::vector<Packet> m_packets;
    std::optional<efr32sim::Event> m_sent;  ///< the last packet; its damages are told behind it
    std::size_t m_cut = kUncut;
    bool m_silent = false;
    efr32sim::Clock::time_point m_silentUntil;
    bool m_tornOut = false;
    efr32sim::Bytes m_packet;  ///< what the reader has of the packet that it is in
    std::vector<Stray> m_strays;
    std::size_t m_lossesInARow = 0;
    std::size_t m_longestLoss = 0;
};

/// What the phone asked and got, what the application was asked and answered, and what the chip did: whether
/// every answer is right, and why each one that is missing is missing.
class Ledger
{
public:
    explicit Ledger(const efr32sim::Chip& chip);

    void add(Asked request) { m_requests.push_back(std::move(request)); }
    void addAnswer(std::string answer) { m_received.insert(std::move(answer)); }
    /// Fails the test for each request since the last call that no recorded fault explains, and for each
    /// wrong answer.
    void settle();
    /// Counts by cause.
    [[nodiscard]] std::string summary() const;

private:
    using Events = std::vector<efr32sim::Event>;

    struct Stranger
    {
        efr32sim::Clock::time_point time;
        std::string bytes;
    };
    /// Requests of which fragments may lie in one of the receiver's four places for frames: their first one
    /// was lost, and the receiver takes the others for those of the next request.
    using Leftovers = std::vector<std::string>;

    void readRecord();
    void settle(const Asked& request);
    /// Whether the application saw it while the station worked on this request.
    [[nodiscard]] static bool isOf(const Asked& request, const Stranger& stranger);
    [[nodiscard]] bool isDamaged(const Stranger& stranger) const;
    [[nodiscard]] std::vector<LineModel::Packet> writesOf(const Asked& request) const;
    [[nodiscard]] std::optional<std::string> causeOf(const Asked& request, const Leftovers& leftovers) const;
    [[nodiscard]] const char* lossOfLink(const Asked& request) const;
    [[nodiscard]] const char* lossOnTheWayIn(const Asked& request, const Leftovers& leftovers) const;
    [[nodiscard]] const char* lossOnTheWayOut(const Asked& request) const;
    [[nodiscard]] std::string describe(const Asked& request) const;

    efr32sim::EventCursor m_cursor;
    Events m_events;
    LineModel m_line;
    std::vector<Asked> m_requests;
    std::size_t m_settled = 0;
    std::set<std::string> m_sent;
    std::set<std::string> m_received;
    std::streamoff m_recordRead = 0;
    std::array<Leftovers, 4> m_slots;
    std::size_t m_straysSettled = 0;
    int m_upset = 0;                    ///< requests that a frame read in part may still concern
    std::vector<Stranger> m_strangers;  ///< requests that nobody sent, not explained yet
    std::set<std::string> m_seen;       ///< requests that reached the application whole
    std::set<std::string> m_answered;   ///< all that the application has answered
    std::map<std::string, int> m_causes;
};
