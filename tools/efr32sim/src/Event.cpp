#include "efr32sim/Event.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace efr32sim {
namespace {
constexpr std::array kNames{
    "started",          "stopped",        "line_opened",    "line_closed",
    "line_mismatch",    "unheard",        "line_overrun",   "line_hung_up",
    "line_plugged",     "reset_low",      "reset_high",     "mode_changed",
    "console_key",      "prompt",         "upload_started", "upload_refused",
    "upload_complete",  "upload_aborted", "boot_sent",      "command",
    "response",         "packet_refused", "chip_event",     "advertising",
    "advertising_data", "connected",      "disconnected",   "phone_write",
    "phone_read",       "att_result",     "notification",   "notification_refused",
    "message",          "violation",      "bonded",         "bonding_failed",
    "pairing_step",     "fault",
};
static_assert(kNames.size() == static_cast<std::size_t>(EventKind::Count_));

template <class T>
T fieldOf(const Event& event, std::string_view name)
{
    for (const auto& [key, value] : event.fields) {
        if (key == name && std::holds_alternative<T>(value))
            return std::get<T>(value);
    }
    return T{};
}

/// Quotes text as JSON does; the line format uses the same quoting.
std::string quoted(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (byte < 0x20 || byte >= 0x7F) {
            std::array<char, 8> escape{};
            (void)std::snprintf(escape.data(), escape.size(), "\\u%04x", byte);
            out += escape.data();
        } else {
            out += c;
        }
    }
    return out + '"';
}

std::string valueText(const FieldValue& value, bool json)
{
    if (const auto* number = std::get_if<std::int64_t>(&value))
        return std::to_string(*number);
    if (const auto* text = std::get_if<std::string>(&value))
        return quoted(*text);
    const std::string hex = toHex(std::get<Bytes>(value));
    return json ? '"' + hex + '"' : hex;
}

std::string seconds(Clock::duration elapsed)
{
    std::array<char, 32> out{};
    (void)std::snprintf(out.data(), out.size(), "%.6f", std::chrono::duration<double>(elapsed).count());
    return out.data();
}
}  // namespace

const char* toString(EventKind kind)
{
    return kind < EventKind::Count_ ? kNames[static_cast<std::size_t>(kind)] : "?";
}

std::int64_t Event::number(std::string_view name) const
{
    return fieldOf<std::int64_t>(*this, name);
}

std::string Event::text(std::string_view name) const
{
    return fieldOf<std::string>(*this, name);
}

Bytes Event::bytes(std::string_view name) const
{
    return fieldOf<Bytes>(*this, name);
}

std::optional<EventKind> eventByName(std::string_view name)
{
    const auto found = std::find(kNames.begin(), kNames.end(), name);
    if (found == kNames.end())
        return std::nullopt;
    return static_cast<EventKind>(found - kNames.begin());
}

std::string toLine(const Fields& fields)
{
    std::string line;
    for (const auto& [name, value] : fields)
        line += ' ' + name + '=' + valueText(value, false);
    return line;
}

std::string toJson(const Fields& fields)
{
    std::string line;
    for (const auto& [name, value] : fields)
        line += ',' + quoted(name) + ':' + valueText(value, true);
    return line;
}

std::string toLine(const Event& event, Clock::time_point origin)
{
    std::string line = "event " + std::to_string(event.sequence) + ' ' + seconds(event.time - origin) + ' ' +
                       toString(event.kind);
    return line + toLine(event.fields);
}

std::string toJson(const Event& event, Clock::time_point origin)
{
    std::string line = "{\"event\":\"" + std::string(toString(event.kind)) +
                       "\",\"sequence\":" + std::to_string(event.sequence) +
                       ",\"time\":" + seconds(event.time - origin);
    return line + toJson(event.fields) + '}';
}

EventLog::EventLog(std::size_t capacity) : m_capacity(std::max<std::size_t>(capacity, 1)) {}

void EventLog::publish(EventKind kind, Fields fields)
{
    const std::lock_guard lock(m_mutex);
    if (m_events.size() == m_capacity)
        m_events.pop_front();
    m_events.push_back({++m_lastSequence, Clock::now(), kind, std::move(fields)});
    m_published.notify_all();
}

std::vector<Event> EventLog::history() const
{
    const std::lock_guard lock(m_mutex);
    return {m_events.begin(), m_events.end()};
}

std::string EventLog::dump() const
{
    std::string out;
    for (const Event& event : history())
        out += toLine(event, m_origin) + '\n';
    return out;
}

EventCursor EventLog::cursor(bool fromStart) const
{
    const std::lock_guard lock(m_mutex);
    return {*this, fromStart ? 0 : m_lastSequence};
}

const Event* EventLog::find(std::uint64_t sequence) const
{
    if (m_events.empty() || sequence > m_lastSequence)
        return nullptr;
    const std::uint64_t first = m_events.front().sequence;
    return &m_events[sequence < first ? 0 : sequence - first];
}

std::optional<Event> EventCursor::nextUntil(Clock::time_point deadline)
{
    std::unique_lock lock(m_log->m_mutex);
    const Event* event = nullptr;
    m_log->m_published.wait_until(lock, deadline,
                                  [&] { return (event = m_log->find(m_position + 1)) != nullptr; });
    if (event == nullptr)
        return std::nullopt;
    m_position = event->sequence;
    return *event;
}

std::optional<Event> EventCursor::next(Milliseconds limit)
{
    return nextUntil(Clock::now() + limit);
}

std::optional<Event> EventCursor::waitFor(EventKind kind, const Filter& filter, Milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    while (auto event = nextUntil(deadline)) {
        if (event->kind == kind && (!filter || filter(*event)))
            return event;
    }
    return std::nullopt;
}

std::size_t EventCursor::drain(EventKind kind)
{
    std::size_t count = 0;
    while (const auto event = nextUntil({}))
        count += event->kind == kind ? 1 : 0;
    return count;
}
}  // namespace efr32sim
