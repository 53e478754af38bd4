#pragma once

#include "efr32sim/Types.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace efr32sim {
/// Everything the simulator reports. docs/simulator.md lists the fields of each.
enum class EventKind {
    Started,
    Stopped,
    LineOpened,    ///< some program opened the serial line
    LineClosed,    ///< some program closed it
    LineMismatch,  ///< bytes went by while the line's settings were wrong for the chip's mode
    Unheard,       ///< the host spoke while the chip was held, booting or silent
    LineOverrun,   ///< host did not read: bytes of the chip were lost
    LineHungUp,
    LinePlugged,
    ResetLow,
    ResetHigh,
    ModeChanged,
    ConsoleKey,
    Prompt,
    UploadStarted,
    UploadRefused,  ///< a block or byte of an upload was not accepted; "reason" says why
    UploadComplete,
    UploadAborted,
    BootSent,
    Command,  ///< a whole command packet came from the host
    Response,
    PacketRefused,    ///< bytes that are no command packet
    ChipEvent,        ///< an event packet went to the host
    Advertising,      ///< advertising started or stopped
    AdvertisingData,  ///< advertising data or scan response set
    Connected,
    Disconnected,
    PhoneWrite,
    PhoneRead,
    AttResult,  ///< the host answered a write or read request of the phone
    Notification,
    NotificationRefused,
    Message,    ///< the phone has reassembled a whole message
    Violation,  ///< the phone received what the fragment format forbids
    Bonded,
    BondingFailed,
    PairingStep,  ///< pairing waits for somebody: "step" says for whom
    Fault,        ///< an injected fault has been applied
    Count_        ///< number of kinds, no event
};
/// The name used in the text and JSON streams, e.g. "reset_low".
[[nodiscard]] const char* toString(EventKind kind);
[[nodiscard]] std::optional<EventKind> eventByName(std::string_view name);

/// A named value of an event or a reply.
using FieldValue = std::variant<std::int64_t, std::string, Bytes>;
using Fields = std::vector<std::pair<std::string, FieldValue>>;
/// " key=value" for each field; text in quotes, bytes in hexadecimal.
[[nodiscard]] std::string toLine(const Fields& fields);
/// ","key":value" for each field, the inside of a JSON object.
[[nodiscard]] std::string toJson(const Fields& fields);

/// One report. Fields are named values: numbers, text or bytes.
struct Event
{
    std::uint64_t sequence = 0;  ///< 1 for the first event of a chip
    Clock::time_point time;
    EventKind kind = EventKind::Started;
    Fields fields;

    /// Value of a field; 0, empty text or no bytes when the event has no such field of that type.
    [[nodiscard]] std::int64_t number(std::string_view name) const;
    [[nodiscard]] std::string text(std::string_view name) const;
    [[nodiscard]] Bytes bytes(std::string_view name) const;
};

/// One line without line feed: "event SEQ SECONDS NAME key=value ...", bytes in hexadecimal.
[[nodiscard]] std::string toLine(const Event& event, Clock::time_point origin);
/// One JSON object on one line, without line feed.
[[nodiscard]] std::string toJson(const Event& event, Clock::time_point origin);

class EventCursor;

/// The bounded history of a chip's events. Every function may be called on any thread.
class EventLog
{
public:
    explicit EventLog(std::size_t capacity);

    void publish(EventKind kind, Fields fields = {});
    /// What is still in the history, oldest first.
    [[nodiscard]] std::vector<Event> history() const;
    /// The history as text, a line an event; for the report of a failed test.
    [[nodiscard]] std::string dump() const;
    [[nodiscard]] Clock::time_point origin() const { return m_origin; }

    /// A reader that sees what comes from now on, or everything that is still in the history.
    [[nodiscard]] EventCursor cursor(bool fromStart = false) const;

private:
    friend class EventCursor;
    /// The event of this sequence, or the oldest one kept when it has gone already. Needs the mutex.
    [[nodiscard]] const Event* find(std::uint64_t sequence) const;

    const std::size_t m_capacity;
    const Clock::time_point m_origin = Clock::now();
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_published;
    std::deque<Event> m_events;
    std::uint64_t m_lastSequence = 0;
};

/// A reader's place in the event log. Must not outlive the chip. One thread at a time uses a cursor.
class EventCursor
{
public:
    using Filter = std::function<bool(const Event&)>;
    static constexpr Milliseconds kPatience{30000};

    EventCursor(const EventLog& log, std::uint64_t position) : m_log(&log), m_position(position) {}

    /// The next event; nothing when none came in time.
    std::optional<Event> next(Milliseconds limit = kPatience);
    /// Skips to the next event of this kind (that passes @p filter) and returns it.
    std::optional<Event> waitFor(EventKind kind, const Filter& filter = {}, Milliseconds limit = kPatience);
    /// Counts the events of this kind that are there now, and moves behind the last one.
    [[nodiscard]] std::size_t drain(EventKind kind);

private:
    std::optional<Event> nextUntil(Clock::time_point deadline);

    const EventLog* m_log;
    std::uint64_t m_position;  // sequence of the last event that was seen
};
}  // namespace efr32sim
