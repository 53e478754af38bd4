#include "efr32sim/Phone.h"

#include "efr32sim/Fragments.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace efr32sim {
class Phone::Impl : public RadioPeer
{
public:
    Impl(Chip& chip, PhoneOptions options) : m_chip(chip), m_options(options) {}

    void onNotification(std::uint16_t characteristic, ByteSpan fragment) override;
    void onDisconnected(std::uint16_t reason) override;
    bool connectNow();
    bool write(ByteSpan value, bool withResponse);
    std::optional<Event> waitResult(EventCursor& events, const char* operation, Milliseconds limit) const;

    template <class Condition>
    bool waitUntil(std::unique_lock<std::mutex>& lock, Milliseconds limit, Condition condition)
    {
        return m_changed.wait_for(lock, limit, condition);
    }
    std::optional<Bytes> takeFrom(std::deque<Bytes>& queue, Milliseconds limit);

    Chip& m_chip;
    const PhoneOptions m_options;
    std::uint16_t m_characteristic = 0;
    std::mutex m_mutex;  // guards what follows; taken after the chip's lock
    std::condition_variable m_changed;
    bool m_connected = false;
    FragmentEncoder m_encoder;
    Reassembler m_reassembler;
    std::deque<Bytes> m_messages;
    std::deque<Bytes> m_notifications;
    std::vector<std::string> m_violations;
};

void Phone::Impl::onNotification(std::uint16_t, ByteSpan fragment)
{
    const std::lock_guard lock(m_mutex);
    m_notifications.emplace_back(fragment.begin(), fragment.end());
    Reassembler::Result result = m_reassembler.accept(fragment);
    for (std::string& violation : result.violations) {
        m_chip.events().publish(EventKind::Violation, {{"text", violation}});
        m_violations.push_back(std::move(violation));
    }
    if (result.message) {
        m_chip.events().publish(EventKind::Message, {{"payload", *result.message}});
        m_messages.push_back(std::move(*result.message));
    }
    m_changed.notify_all();
}

void Phone::Impl::onDisconnected(std::uint16_t)
{
    const std::lock_guard lock(m_mutex);
    m_connected = false;
    m_changed.notify_all();
}

/// The link exists for the chip before this returns, so the phone makes itself ready first.
bool Phone::Impl::connectNow()
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_connected)
            return true;
        m_reassembler.reset();
        m_connected = true;
    }
    const bool linked = m_chip.connectPeer(*this, m_options.address);
    if (!linked)
        onDisconnected(0);
    else if (m_options.subscribe)
        m_chip.peerSubscribe(*this, true);
    return linked;
}

bool Phone::Impl::write(ByteSpan value, bool withResponse)
{
    return m_chip.peerWrite(*this, m_characteristic, value, withResponse);
}

/// The host's answer to a request, or nothing when the link ends first.
std::optional<Event> Phone::Impl::waitResult(EventCursor& events, const char* operation,
                                             Milliseconds limit) const
{
    const auto deadline = Clock::now() + limit;
    while (Clock::now() < deadline) {
        auto event = events.next(std::chrono::ceil<Milliseconds>(deadline - Clock::now()));
        if (!event || event->kind == EventKind::Disconnected)
            break;
        if (event->kind == EventKind::AttResult && event->text("operation") == operation)
            return event;
    }
    return std::nullopt;
}

std::optional<Bytes> Phone::Impl::takeFrom(std::deque<Bytes>& queue, Milliseconds limit)
{
    std::unique_lock lock(m_mutex);
    if (!waitUntil(lock, limit, [&] { return !queue.empty(); }))
        return std::nullopt;
    Bytes first = std::move(queue.front());
    queue.pop_front();
    return first;
}

Phone::Phone(Chip& chip, PhoneOptions options) : m_impl(std::make_unique<Impl>(chip, options))
{
    m_impl->m_characteristic = chip.characteristic();
}

Phone::~Phone()
{
    disconnect();
}

std::optional<ScanResult> Phone::scan(Milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    EventCursor events = m_impl->m_chip.follow();
    AirState air = m_impl->m_chip.air();
    while (!air.advertising) {
        const auto left = std::chrono::ceil<Milliseconds>(deadline - Clock::now());
        if (!events.waitFor(EventKind::Advertising, {}, left))
            return std::nullopt;
        air = m_impl->m_chip.air();
    }
    ScanResult result{.air = air, .advertising = {}, .scanResponse = {}};
    result.advertising = decodeAdStructures(air.advertisingData);
    result.scanResponse = decodeAdStructures(air.scanResponse);
    return result;
}

bool Phone::connect(Milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    EventCursor events = m_impl->m_chip.follow();
    while (!m_impl->connectNow()) {
        const auto left = std::chrono::ceil<Milliseconds>(deadline - Clock::now());
        if (!events.waitFor(EventKind::Advertising, {}, left))
            return false;
    }
    return true;
}

void Phone::disconnect(std::uint16_t reason)
{
    m_impl->m_chip.disconnectPeer(*m_impl, reason);
}

bool Phone::connected() const
{
    const std::lock_guard lock(m_impl->m_mutex);
    return m_impl->m_connected;
}

bool Phone::waitDisconnected(Milliseconds limit)
{
    std::unique_lock lock(m_impl->m_mutex);
    return m_impl->waitUntil(lock, limit, [this] { return !m_impl->m_connected; });
}

bool Phone::subscribe(bool enable)
{
    return m_impl->m_chip.peerSubscribe(*m_impl, enable);
}

bool Phone::writeCommand(ByteSpan value)
{
    return m_impl->write(value, false);
}

std::optional<std::uint8_t> Phone::writeRequest(ByteSpan value, Milliseconds limit)
{
    EventCursor events = m_impl->m_chip.follow();
    if (!m_impl->write(value, true))
        return std::nullopt;
    const auto event = m_impl->waitResult(events, "write", limit);
    return event ? std::optional(static_cast<std::uint8_t>(event->number("error"))) : std::nullopt;
}

std::optional<Bytes> Phone::read(std::uint16_t characteristic, Milliseconds limit)
{
    EventCursor events = m_impl->m_chip.follow();
    if (!m_impl->m_chip.peerRead(*m_impl, characteristic))
        return std::nullopt;
    const auto event = m_impl->waitResult(events, "read", limit);
    return event && event->number("error") == 0 ? std::optional(event->bytes("value")) : std::nullopt;
}

bool Phone::writeMessage(ByteSpan message)
{
    std::vector<Bytes> fragments;
    {
        const std::lock_guard lock(m_impl->m_mutex);
        fragments = m_impl->m_encoder.encode(message);
    }
    bool first = true;
    for (const Bytes& fragment : fragments) {
        if (!std::exchange(first, false) && m_impl->m_options.writeInterval.count() > 0)
            std::this_thread::sleep_for(m_impl->m_options.writeInterval);
        const bool accepted =
            m_impl->m_options.withResponse ? writeRequest(fragment) == 0 : writeCommand(fragment);
        if (!accepted)
            return false;
    }
    return true;
}

bool Phone::writeMessage(std::string_view message)
{
    return writeMessage(ByteSpan(reinterpret_cast<const std::uint8_t*>(message.data()), message.size()));
}

std::optional<Bytes> Phone::waitMessage(Milliseconds limit)
{
    return m_impl->takeFrom(m_impl->m_messages, limit);
}

std::optional<Bytes> Phone::waitNotification(Milliseconds limit)
{
    return m_impl->takeFrom(m_impl->m_notifications, limit);
}

std::vector<std::string> Phone::violations() const
{
    const std::lock_guard lock(m_impl->m_mutex);
    return m_impl->m_violations;
}

bool Phone::pair()
{
    return m_impl->m_chip.peerPair(*m_impl);
}

bool Phone::enterPasskey(std::uint32_t passkey)
{
    return m_impl->m_chip.peerPasskey(*m_impl, passkey);
}
}  // namespace efr32sim
