#include "SerialLine.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace efr32sim {
namespace {
constexpr std::size_t kOutputLimit = 1 << 20;
constexpr std::size_t kReadChunk = 4096;
constexpr std::int64_t kBitsPerByte = 10;
constexpr std::chrono::milliseconds kSampleInterval{20};
constexpr int kCertain = 2;
constexpr std::chrono::milliseconds kPaceStep{1};

struct Speed
{
    speed_t code;
    unsigned baud;
};
constexpr std::array kSpeeds{
    Speed{B300, 300},       Speed{B1200, 1200},     Speed{B2400, 2400},     Speed{B4800, 4800},
    Speed{B9600, 9600},     Speed{B19200, 19200},   Speed{B38400, 38400},   Speed{B57600, 57600},
    Speed{B115200, 115200}, Speed{B230400, 230400}, Speed{B460800, 460800}, Speed{B921600, 921600},
};

unsigned baudOf(speed_t code)
{
    const auto* speed = std::find_if(kSpeeds.begin(), kSpeeds.end(),
                                     [code](const Speed& entry) { return entry.code == code; });
    return speed == kSpeeds.end() ? 0 : speed->baud;
}

/// The state of a line that nobody has set up: raw, so that nothing is echoed, at a speed that neither of
/// the chip's modes uses.
void setUntouched(int slave)
{
    termios settings{};
    if (::tcgetattr(slave, &settings) != 0)
        throw std::system_error(errno, std::generic_category(), "tcgetattr");
    ::cfmakeraw(&settings);
    ::cfsetspeed(&settings, B9600);
    if (::tcsetattr(slave, TCSANOW, &settings) != 0)
        throw std::system_error(errno, std::generic_category(), "tcsetattr");
}

std::string slaveName(int master)
{
    std::array<char, 64> name{};
    if (::grantpt(master) != 0 || ::unlockpt(master) != 0 ||
        ::ptsname_r(master, name.data(), name.size()) != 0)
        throw std::system_error(errno, std::generic_category(), "pseudo-terminal");
    return name.data();
}

/// Replaces a link that an earlier run left behind, but nothing else.
void makeLink(const std::string& target, const std::string& link)
{
    if (std::filesystem::is_symlink(link))
        std::filesystem::remove(link);
    std::filesystem::create_symlink(target, link);
}
}  // namespace

std::string toText(const LineSettings& settings)
{
    return std::to_string(settings.baud) + " 8N" + (settings.twoStopBits ? '2' : '1') +
           (settings.rtsCts ? " rtscts" : "");
}

SerialLine::SerialLine(Config config, EventLog& events) : m_config(std::move(config)), m_events(events) {}

void SerialLine::plug()
{
    m_master = ownOrThrow(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "posix_openpt");
    m_slavePath = slaveName(m_master.get());
    m_slave = ownOrThrow(::open(m_slavePath.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), m_slavePath.c_str());
    setUntouched(m_slave.get());
    m_watch = Fd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (m_watch)
        ::inotify_add_watch(m_watch.get(), m_slavePath.c_str(), IN_OPEN | IN_CLOSE);
    if (!m_config.link.empty())
        makeLink(m_slavePath, m_config.link);
    m_rx = m_tx = {};
    m_blocked = false;
    look(kCertain);
}

void SerialLine::unplug()
{
    if (!plugged())
        return;
    std::error_code ignored;
    if (!m_config.link.empty() && std::filesystem::read_symlink(m_config.link, ignored) == m_slavePath)
        std::filesystem::remove(m_config.link, ignored);
    m_output.clear();
    m_watch.reset();
    m_slave.reset();
    m_master.reset();
}

void SerialLine::expect(const LineSettings& settings)
{
    m_expected = settings;
    look(kCertain);
}

LineSettings SerialLine::inForce() const
{
    termios settings{};
    if (!plugged() || ::tcgetattr(m_slave.get(), &settings) != 0)
        return {};
    return {baudOf(::cfgetospeed(&settings)), (settings.c_cflag & CSTOPB) != 0,
            (settings.c_cflag & CRTSCTS) != 0};
}

SerialLine::Fit SerialLine::fit() const
{
    const LineSettings host = inForce();
    if (!m_config.check || host == m_expected)
        return Fit::Good;
    // With flow control on one side only, that side waits for a signal which nobody drives.
    if (host.baud == m_expected.baud && host.twoStopBits == m_expected.twoStopBits)
        return Fit::Blocked;
    return Fit::Garbled;
}

void SerialLine::look(int weight)
{
    m_badSamples = fit() == Fit::Good ? 0 : std::min(m_badSamples + weight, kCertain);
}

std::chrono::nanoseconds SerialLine::timeOf(std::int64_t bytes) const
{
    return std::chrono::nanoseconds(bytes * kBitsPerByte * 1'000'000'000 / m_expected.baud);
}

/// A transmission that follows another at once begins where that one ends, so that lateness of this
/// program does not add up.
void SerialLine::begin(Schedule& schedule, Clock::time_point now) const
{
    schedule.start = std::max(now, schedule.start + timeOf(schedule.count));
    schedule.count = 0;
    schedule.running = true;
}

std::size_t SerialLine::due(Schedule& schedule, Clock::time_point now) const
{
    if (now <= schedule.start)
        return 0;
    const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(now - schedule.start).count();
    const std::int64_t bytes = elapsed * m_expected.baud / (kBitsPerByte * 1'000'000'000);
    return static_cast<std::size_t>(std::max<std::int64_t>(bytes - schedule.count, 0));
}

void SerialLine::reportMismatch(const char* direction, std::size_t bytes)
{
    m_events.publish(EventKind::LineMismatch, {{"direction", direction},
                                               {"bytes", static_cast<std::int64_t>(bytes)},
                                               {"host", toText(inForce())},
                                               {"chip", toText(m_expected)}});
}

void SerialLine::garble(Bytes& bytes)
{
    // Framing errors read as bytes with the high bit set: never a prompt, never a packet.
    for (std::uint8_t& byte : bytes)
        byte = static_cast<std::uint8_t>(0xC0 | (m_noise() & 0x3F));
}

void SerialLine::send(ByteSpan bytes, Clock::time_point start)
{
    if (!plugged())
        return;
    if (m_output.size() + bytes.size() > kOutputLimit) {
        m_events.publish(EventKind::LineOverrun, {{"bytes", static_cast<std::int64_t>(bytes.size())}});
        return;
    }
    if (m_output.empty())
        begin(m_tx, start);
    m_output.insert(m_output.end(), bytes.begin(), bytes.end());
    transmit(start);
}

void SerialLine::dropOutput()
{
    m_output.clear();
    m_blocked = false;
}

std::size_t SerialLine::writeOut(const Bytes& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(m_master.get(), bytes.data() + done, bytes.size() - done);
        if (written <= 0)
            break;
        done += static_cast<std::size_t>(written);
    }
    return done;
}

void SerialLine::transmit(Clock::time_point now)
{
    if (!plugged() || m_output.empty())
        return;
    const std::size_t count = m_config.pace ? std::min(due(m_tx, now), m_output.size()) : m_output.size();
    if (count == 0)
        return;
    Bytes bytes(m_output.begin(), m_output.begin() + static_cast<std::ptrdiff_t>(count));
    const Fit now_fit = fit();
    if (now_fit != Fit::Good) {
        reportMismatch("to_host", count);
        garble(bytes);
    }
    const std::size_t done = now_fit == Fit::Blocked ? count : writeOut(bytes);
    m_output.erase(m_output.begin(), m_output.begin() + static_cast<std::ptrdiff_t>(done));
    m_tx.count += static_cast<std::int64_t>(done);
    m_blocked = done < count;
    if (m_blocked)
        m_tx = {now, 0, true};
}

std::size_t SerialLine::waiting() const
{
    int count = 0;
    return ::ioctl(m_master.get(), FIONREAD, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

Bytes SerialLine::receive(Clock::time_point now)
{
    if (!plugged())
        return {};
    std::size_t limit = kReadChunk;
    if (m_config.pace) {
        const std::size_t available = waiting();
        if (available > 0 && !m_rx.running)
            begin(m_rx, now);
        limit = m_rx.running ? std::min(due(m_rx, now), available) : 0;
        m_rx.running = available > limit;
    }
    Bytes bytes(limit);
    const ssize_t got = limit > 0 ? ::read(m_master.get(), bytes.data(), limit) : 0;
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    m_rx.count += static_cast<std::int64_t>(bytes.size());
    m_heardAt = m_config.pace ? m_rx.start + timeOf(m_rx.count) : now;
    if (bytes.empty())
        return bytes;
    // A pseudo-terminal does not hold tcdrain() until the chip has heard: bytes sent just before the host
    // changed its settings are still good. Hence settings count as wrong from the second look at them on.
    if (fit() == Fit::Good) {
        m_badSamples = 0;
    } else if (m_badSamples >= kCertain) {
        reportMismatch("to_chip", bytes.size());
        bytes.clear();
    }
    return bytes;
}

std::size_t SerialLine::dropInput(std::size_t limit)
{
    std::array<std::uint8_t, kReadChunk> scratch{};
    std::size_t dropped = 0;
    ssize_t got = 0;
    const auto rest = [&] { return std::min(limit - dropped, scratch.size()); };
    while (plugged() && rest() > 0 && (got = ::read(m_master.get(), scratch.data(), rest())) > 0)
        dropped += static_cast<std::size_t>(got);
    m_rx = {};
    return dropped;
}

short SerialLine::pollEvents() const
{
    const bool listen = !m_config.pace || !m_rx.running;
    return static_cast<short>((listen ? POLLIN : 0) | (m_blocked ? POLLOUT : 0));
}

std::optional<Clock::time_point> SerialLine::wakeUp(Clock::time_point now) const
{
    std::optional<Clock::time_point> when;
    const auto consider = [&when](Clock::time_point other) { when = std::min(when.value_or(other), other); };
    if (!plugged())
        return when;
    consider(m_nextSample);
    // Wakes for the last byte on the way, or after a step when more follow.
    const auto consider_schedule = [&](const Schedule& schedule, std::size_t left) {
        const auto end = schedule.start + timeOf(schedule.count + static_cast<std::int64_t>(left));
        const auto first = schedule.start + timeOf(schedule.count + 1);
        consider(std::min(end, std::max(first, now + kPaceStep)));
    };
    if (m_config.pace && !m_output.empty() && !m_blocked)
        consider_schedule(m_tx, m_output.size());
    if (m_config.pace && m_rx.running)
        consider_schedule(m_rx, waiting());
    return when;
}

void SerialLine::sample(Clock::time_point now)
{
    readOpenClose();
    if (!plugged() || now < m_nextSample)
        return;
    m_nextSample = now + kSampleInterval;
    look(1);
    // The kept slave would make a user's exclusive mode outlive that user.
    ::ioctl(m_slave.get(), TIOCNXCL);
}

void SerialLine::readOpenClose()
{
    alignas(inotify_event) std::array<char, 4096> buffer;
    ssize_t size = 0;
    while (m_watch && (size = ::read(m_watch.get(), buffer.data(), buffer.size())) > 0) {
        for (std::ptrdiff_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            const bool opened = (event->mask & IN_OPEN) != 0;
            m_events.publish(opened ? EventKind::LineOpened : EventKind::LineClosed,
                             {{"settings", toText(inForce())}});
            if (!opened)
                ::ioctl(m_slave.get(), TIOCNXCL);
            at += static_cast<std::ptrdiff_t>(sizeof(inotify_event) + event->len);
        }
    }
}
}  // namespace efr32sim
