#include "Ledger.h"

#include "Record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <span>
#include <sstream>

namespace {
using efr32sim::Bytes;
using efr32sim::ByteSpan;
using efr32sim::Clock;
using efr32sim::CommandId;
using efr32sim::Event;
using efr32sim::EventKind;
using efr32sim::Milliseconds;

constexpr CommandId kWriteRequest{0x0A, 0x02};
constexpr CommandId kNotification{0x0A, 0x05};
constexpr std::size_t kHeader = 4;
constexpr std::size_t kMaxPayload = 256;
constexpr int kReboot = 1;  // numbers of the mishaps
constexpr int kLinkLoss = 2;
constexpr int kBurst = 3;
// A station that knows that its link has ended is on the air again within milliseconds; machines are slow.
constexpr std::chrono::seconds kAdvertisingLimit{10};
// From the phone's giving up until the application has read what the service had received by then.
constexpr std::chrono::seconds kDelayLimit{1};
constexpr const char* kDamaged = "(damaged requests that the application answered)";
constexpr const char* kMixed = "(mixtures of two requests that the application answered)";
constexpr std::size_t kValueOffset = 7;  // of what the phone wrote, in the payload of its event

CommandId idOf(const Event& event)
{
    return {static_cast<std::uint8_t>(event.number("class")), static_cast<std::uint8_t>(event.number("id"))};
}

bool isFault(const Event& event, const char* name)
{
    return event.kind == EventKind::Fault && event.text("fault") == name;
}

bool isMishap(const Event& event, int number)
{
    return isFault(event, "mishap") && event.number("number") == number;
}

/// What happened from @p from to @p to, in things that are in the order of their time.
template <class Thing>
std::span<const Thing> during(const std::vector<Thing>& things, Clock::time_point from, Clock::time_point to)
{
    const auto first = std::lower_bound(things.begin(), things.end(), from,
                                        [](const Thing& thing, auto time) { return thing.time < time; });
    const auto last = std::upper_bound(first, things.end(), to,
                                       [](auto time, const Thing& thing) { return time < thing.time; });
    return {first, last};
}

bool isAnswerFault(const Event& event)
{
    return isFault(event, "lost-response") || isFault(event, "late-response") ||
           isFault(event, "error-response");
}

bool isLost(const LineModel::Packet& packet)
{
    return packet.loss != nullptr;
}

/// Whether every byte is that of the request or of an earlier one at the same distance from the end.
bool isMixture(const std::string& bytes, const std::string& request, const std::vector<std::string>& earlier)
{
    const auto fits = [&bytes](const std::string& text, std::size_t fromEnd) {
        return fromEnd <= text.size() && bytes[bytes.size() - fromEnd] == text[text.size() - fromEnd];
    };
    for (std::size_t fromEnd = 1; fromEnd <= bytes.size(); ++fromEnd) {
        if (!fits(request, fromEnd) && std::none_of(earlier.begin(), earlier.end(),
                                                    [&](const auto& text) { return fits(text, fromEnd); }))
            return false;
    }
    return !earlier.empty() && bytes.size() == request.size();
}

Bytes packetOf(const Event& event)
{
    const Bytes payload = event.bytes("payload");
    const int type = event.kind == EventKind::ChipEvent ? 0xA0 : 0x20;
    Bytes bytes{static_cast<std::uint8_t>(type | payload.size() >> 8),
                static_cast<std::uint8_t>(payload.size()), idOf(event).classId, idOf(event).id};
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}
}  // namespace

void LineModel::follow(const Event& event)
{
    // What chance does to a packet is told behind it, what it puts in front of it included.
    if (m_sent && isFault(event, "noise")) {
        read(event.bytes("bytes"));
        return;
    }
    if (m_sent && isFault(event, "oversize")) {
        read({{static_cast<std::uint8_t>(packetOf(*m_sent)[0] | 1), 1, 0, 0}});
        return;
    }
    if (m_sent && isFault(event, "cut")) {
        m_cut = static_cast<std::size_t>(event.number("length"));
        return;
    }
    deliver();
    if (event.kind == EventKind::ChipEvent || event.kind == EventKind::Response) {
        m_sent = event;
        m_silent = event.time < m_silentUntil;
    } else if (isFault(event, "silence")) {
        m_silentUntil = event.time + Milliseconds(event.number("ms"));
    } else if (event.kind == EventKind::LineHungUp) {
        m_tornOut = true;
    } else if (event.kind == EventKind::LineOpened) {
        m_tornOut = false;
        m_header.clear();
        m_payloadLeft = 0;
    }
}

void LineModel::deliver()
{
    if (!m_sent)
        return;
    Bytes bytes = packetOf(*m_sent);
    const bool isCut = m_cut < bytes.size();
    const bool isInStep = m_header.empty() && m_payloadLeft == 0;
    const char* const loss = m_tornOut   ? "the line was torn out"
                             : m_silent  ? "the chip was silent"
                             : isCut     ? "a packet was cut"
                             : !isInStep ? "the reader was out of step"
                                         : nullptr;
    if (loss == nullptr)
        m_lossesInARow = 0;
    else if (!m_tornOut && !m_silent && !isCut)
        m_longestLoss = std::max(m_longestLoss, ++m_lossesInARow);
    bytes.resize(std::min(m_cut, bytes.size()));
    read(bytes);
    m_packets.push_back({m_sent->time, idOf(*m_sent), m_sent->bytes("payload"), loss});
    m_sent.reset();
    m_cut = kUncut;
}

void LineModel::read(ByteSpan bytes)
{
    if (m_tornOut || m_silent)
        return;
    for (const std::uint8_t byte : bytes) {
        if (m_payloadLeft > 0) {
            --m_payloadLeft;
            continue;
        }
        m_header.push_back(byte);
        if ((m_header[0] & 0x78) != 0x20) {
            m_header.clear();
        } else if (m_header.size() == kHeader) {
            const std::size_t length = static_cast<std::size_t>(m_header[0] & 7) << 8 | m_header[1];
            m_payloadLeft = length > kMaxPayload ? 0 : length;
            m_header.clear();
        }
    }
}

Ledger::Ledger(const efr32sim::Chip& chip) : m_cursor(chip.followFromStart())
{
    std::ofstream made(kRecordPath);
}

void Ledger::settle()
{
    while (auto event = m_cursor.next(Milliseconds(0))) {
        m_line.follow(*event);
        m_events.push_back(std::move(*event));
    }
    for (std::size_t i = m_settled; i < m_requests.size(); ++i)
        m_sent.insert(m_requests[i].text);
    readRecord();
    for (const std::string& answer : m_received)
        EXPECT_TRUE(m_answered.contains(answer)) << "not an answer of the application: " << answer;
    for (; m_settled < m_requests.size(); ++m_settled)
        settle(m_requests[m_settled]);
    for (const Stranger& stranger : m_strangers) {
        EXPECT_TRUE(isDamaged(stranger)) << "a request that the phone never sent: " << stranger.bytes;
        ++m_causes[kDamaged];
    }
    m_strangers.clear();
}

void Ledger::settle(const Asked& request)
{
    const auto writes = writesOf(request);
    const std::size_t place = writes.empty() ? 0 : (writes.front().payload.at(kValueOffset) >> 4) & 3;
    Leftovers& leftovers = m_slots[place];
    const auto cause = causeOf(request, leftovers);
    EXPECT_TRUE(cause) << "lost without a fault: " << describe(request);
    ++m_causes[cause.value_or("unexplained")];
    const auto mixtures = std::erase_if(m_strangers, [&](const Stranger& stranger) {
        return isOf(request, stranger) && isMixture(stranger.bytes, request.text, leftovers);
    });
    m_causes[kMixed] += static_cast<int>(mixtures);
    if (writes.empty())
        return;
    if (isLost(writes.front()) || mixtures > 0)
        leftovers.push_back(request.text);
    else
        leftovers.clear();
}

bool Ledger::isDamaged(const Stranger& stranger) const
{
    return std::any_of(m_requests.begin(), m_requests.end(), [&](const Asked& request) {
        const auto writes = isOf(request, stranger) ? writesOf(request) : std::vector<LineModel::Packet>();
        return std::any_of(writes.begin(), writes.end(), isLost);
    });
}

std::vector<LineModel::Packet> Ledger::writesOf(const Asked& request) const
{
    std::vector<LineModel::Packet> writes;
    for (const LineModel::Packet& packet : during(m_line.packets(), request.begun, request.ended)) {
        if (packet.id == kWriteRequest)
            writes.push_back(packet);
    }
    return writes;
}

void Ledger::readRecord()
{
    std::ifstream in(kRecordPath);
    in.seekg(m_recordRead);
    for (std::string line; std::getline(in, line);) {
        m_recordRead += static_cast<std::streamoff>(line.size()) + 1;
        std::istringstream words(line);
        Clock::rep time = 0;
        std::string way;
        std::string hex;
        words >> time >> way >> hex;
        const std::string bytes = fromRecordHex(hex);
        if (way == kAnswerWord)
            m_answered.insert(bytes);
        else if (m_sent.contains(bytes))
            m_seen.insert(bytes);
        else
            m_strangers.push_back({Clock::time_point(Clock::duration(time)), bytes});
    }
}

bool Ledger::isOf(const Asked& request, const Stranger& stranger)
{
    return stranger.time >= request.begun && stranger.time <= request.ended + kDelayLimit;
}

std::optional<std::string> Ledger::causeOf(const Asked& request, const Leftovers& leftovers) const
{
    if (request.outcome == Asked::Outcome::Answered)
        return "answered";
    if (m_received.contains("echo:" + request.text))
        return "answered late";
    const bool seen = m_seen.contains(request.text);
    const char* const cause = request.outcome == Asked::Outcome::NotConnected ? lossOfLink(request)
                              : seen                                          ? lossOnTheWayOut(request)
                                     : lossOnTheWayIn(request, leftovers);
    if (cause == nullptr)
        return std::nullopt;
    return (request.outcome == Asked::Outcome::NotConnected ? "no connection: "
            : seen                                          ? "lost on the way out: "
                                                            : "lost on the way in: ") +
           std::string(cause);
}

const char* Ledger::lossOfLink(const Asked& request) const
{
    const auto before = during(m_events, {}, request.ended);
    const auto loss = std::find_if(before.rbegin(), before.rend(),
                                   [](const Event& event) { return event.kind == EventKind::Disconnected; });
    if (loss == before.rend())
        return nullptr;
    const Clock::time_point began = loss->time;
    // The chip tells of the mishap behind its consequences, and of a reset before them.
    const bool wasReset = loss + 1 != before.rend() && (loss + 1)->kind == EventKind::ResetLow;
    const bool hasCause = wasReset || std::any_of(before.rbegin(), loss, [](const Event& event) {
                              return isMishap(event, kReboot) || isMishap(event, kLinkLoss);
                          });
    if (!hasCause)
        return nullptr;
    if (request.ended - began < kAdvertisingLimit)
        return "the link was lost a moment ago";
    const auto packets = during(m_line.packets(), began, request.ended);
    const bool misled = std::any_of(packets.begin(), packets.end(), isLost) ||
                        std::any_of(before.rbegin(), loss, [](const Event& event) {
                            return event.kind == EventKind::Fault && event.text("fault") != "mishap";
                        });
    return misled ? "the station did not hear of it" : nullptr;
}

const char* Ledger::lossOnTheWayIn(const Asked& request, const Leftovers& leftovers) const
{
    const auto writes = writesOf(request);
    if (const auto lost = std::find_if(writes.begin(), writes.end(), isLost); lost != writes.end())
        return lost->loss;
    for (const Event& event : during(m_events, request.begun, request.ended)) {
        if (event.kind == EventKind::Disconnected)
            return "the link was lost";
        if (isMishap(event, kBurst))
            return "a burst of events filled the queue";
    }
    return !leftovers.empty() ? "fragments of an earlier request lay in its place" : nullptr;
}

const char* Ledger::lossOnTheWayOut(const Asked& request) const
{
    const char* repeated = nullptr;
    Bytes last;
    for (const Event& event : during(m_events, request.begun, request.ended)) {
        if (event.kind == EventKind::Disconnected)
            return "the link was lost";
        if (event.kind == EventKind::Unheard)
            return "the chip was silent";
        if (isFault(event, "refuse-notification"))
            return "a notification was refused";
        if (isAnswerFault(event) && idOf(event) == kNotification)
            return "a response was late, lost or an error";
        if (event.kind != EventKind::Command || idOf(event) != kNotification)
            continue;
        if (event.bytes("payload") == last)
            repeated = "a response took more than 10 ms on a busy machine";
        last = event.bytes("payload");
    }
    for (const LineModel::Packet& packet : during(m_line.packets(), request.begun, request.ended)) {
        if (packet.loss != nullptr)
            return packet.loss;
    }
    return repeated;
}

std::string Ledger::describe(const Asked& request) const
{
    std::string out = request.text + '\n';
    const auto origin = m_events.front().time;
    for (const Event& event : during(m_events, request.begun - std::chrono::seconds(3), request.ended))
        out += (event.time < request.begun ? "before " : "") + toLine(event, origin) + '\n';
    return out;
}

std::string Ledger::summary() const
{
    std::ostringstream out;
    out << m_requests.size() << " requests\n";
    for (const auto& [cause, count] : m_causes)
        out << "  " << count << ' ' << cause << '\n';
    out << "  " << m_line.longestLoss() << " packets in a row, at most, lost to a reader out of step\n";
    return out.str();
}
