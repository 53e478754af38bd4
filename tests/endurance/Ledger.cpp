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
constexpr const char* kWayIn = "lost on the way in: ";
constexpr const char* kOverflow = "a burst of events filled the queue";
constexpr const char* kGarbled = "(requests garbled behind a mixture that was read in part)";
// The rest of a frame that was read in part and the frame behind it are complete at once. The receiver never
// finds the second of two, and counts it, until the fourth request after it takes its place.
constexpr int kRequestsUpset = 5;
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

std::size_t slotOf(std::uint8_t fragmentHeader)
{
    return fragmentHeader >> 4 & 3;
}

bool isLost(const LineModel::Packet& packet)
{
    return packet.loss != nullptr;
}

/// Whether every byte is that of the request or of an earlier one at the same distance from the end. The end
/// may be missing: the bridge counts what is there, and more may have come when it reads.
bool isMixture(const std::string& bytes, const std::string& request, const std::vector<std::string>& earlier)
{
    if (earlier.empty() || bytes.size() > request.size())
        return false;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const std::size_t fromEnd = request.size() - at;
        const auto fits = [&](const std::string& text) {
            return fromEnd <= text.size() && bytes[at] == text[text.size() - fromEnd];
        };
        if (!fits(request) && std::none_of(earlier.begin(), earlier.end(), fits))
            return false;
    }
    return true;
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
        m_packet.clear();
    }
}

void LineModel::deliver()
{
    if (!m_sent)
        return;
    Bytes bytes = packetOf(*m_sent);
    const bool isCut = m_cut < bytes.size();
    const bool isInStep = m_packet.empty();
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
    m_packets.push_back({m_sent->time, idOf(*m_sent), m_sent->bytes("payload"), loss});
    read(bytes);
    m_sent.reset();
    m_cut = kUncut;
}

void LineModel::read(ByteSpan bytes)
{
    if (m_tornOut || m_silent)
        return;
    for (const std::uint8_t byte : bytes) {
        m_packet.push_back(byte);
        if ((m_packet[0] & 0x78) != 0x20) {
            m_packet.clear();
        } else if (m_packet.size() >= kHeader) {
            const std::size_t length = static_cast<std::size_t>(m_packet[0] & 7) << 8 | m_packet[1];
            if (length > kMaxPayload) {
                m_packet.clear();
            } else if (m_packet.size() == kHeader + length) {
                noteStray();
                m_packet.clear();
            }
        }
    }
}

void LineModel::noteStray()
{
    const bool isWrite = m_packet[0] >= 0xA0 && CommandId{m_packet[2], m_packet[3]} == kWriteRequest;
    if (isWrite && m_packet.size() > kHeader + kValueOffset && isLost(m_packets.back()))
        m_strays.push_back({m_packets.back().time, slotOf(m_packet[kHeader + kValueOffset])});
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
    Leftovers& leftovers = m_slots[writes.empty() ? 0 : slotOf(writes.front().payload.at(kValueOffset))];
    const auto cause = causeOf(request, leftovers);
    EXPECT_TRUE(cause) << "lost without a fault: " << describe(request);
    ++m_causes[cause.value_or("unexplained")];
    bool isReadInPart = false;
    const auto mixtures = std::erase_if(m_strangers, [&](const Stranger& stranger) {
        if (stranger.time < request.begun || stranger.time > request.ended ||
            !isMixture(stranger.bytes, request.text, leftovers))
            return false;
        isReadInPart = isReadInPart || stranger.bytes.size() < request.text.size();
        return true;
    });
    m_causes[kMixed] += static_cast<int>(mixtures);
    std::size_t garbled = 0;
    if (m_upset > 0) {
        --m_upset;
        garbled =
            std::erase_if(m_strangers, [&](const Stranger& stranger) { return isOf(request, stranger); });
    }
    m_causes[kGarbled] += static_cast<int>(garbled);
    if (isReadInPart)
        m_upset = kRequestsUpset;
    // What has been read is gone from its place; what came behind it, or without a first fragment, stays.
    const bool firstMayBeLost =
        !writes.empty() && (isLost(writes.front()) || cause == kWayIn + std::string(kOverflow));
    if (!writes.empty() && !firstMayBeLost)
        leftovers.clear();
    if (firstMayBeLost || mixtures + garbled > 0)
        leftovers.push_back(request.text);
    for (const auto& strays = m_line.strays();
         m_straysSettled < strays.size() && strays[m_straysSettled].time <= request.ended; ++m_straysSettled)
        m_slots[strays[m_straysSettled].slot].emplace_back();
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
                                                            : kWayIn) +
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
            return kOverflow;
    }
    return !leftovers.empty() ? "fragments of an earlier request lay in its place"
           : m_upset > 0      ? "a mixture before it was read in part"
                              : nullptr;
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
