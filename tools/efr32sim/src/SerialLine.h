#pragma once

#include "Fd.h"
#include "efr32sim/Event.h"
#include "efr32sim/Types.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <string>

namespace efr32sim {
/// Settings of one end of the line. Eight data bits and no parity always: a pseudo-terminal forces them.
struct LineSettings
{
    unsigned baud = 0;
    bool twoStopBits = false;
    bool rtsCts = false;
    bool operator==(const LineSettings&) const = default;
};
[[nodiscard]] std::string toText(const LineSettings& settings);

constexpr LineSettings kConsoleLine{230400, false, false};
constexpr LineSettings kCoprocessorLine{115200, false, true};

/// The chip's end of the serial line: the master of a pseudo-terminal. Not thread-safe.
class SerialLine
{
public:
    struct Config
    {
        std::string link;  ///< symbolic link to the slave, empty for none
        bool pace = false;
        bool check = true;
    };

    SerialLine(Config config, EventLog& events);
    ~SerialLine() { unplug(); }
    SerialLine(const SerialLine&) = delete;
    SerialLine& operator=(const SerialLine&) = delete;

    /// Makes the pseudo-terminal and its link; throws std::system_error.
    void plug();
    /// Hangs the line up and removes the link.
    void unplug();
    [[nodiscard]] bool plugged() const { return static_cast<bool>(m_master); }
    [[nodiscard]] const std::string& slavePath() const { return m_slavePath; }

    /// What the chip's own end is set to from now on.
    void expect(const LineSettings& settings);
    /// What the host has set its end to.
    [[nodiscard]] LineSettings inForce() const;

    /// Hands bytes to the transmitter, which begins with them at @p start, or when it has sent what it has.
    /// Bytes beyond a bound are lost, as in a chip that must go on.
    void send(ByteSpan bytes, Clock::time_point start);
    void dropOutput();
    /// What the chip has heard up to now, with the line's garbling applied.
    [[nodiscard]] Bytes receive(Clock::time_point now);
    /// When the last byte of the last receive() had arrived: on a paced line not the moment at which this
    /// program came to look, but that at which the byte was over. What the chip answers begins then.
    [[nodiscard]] Clock::time_point heardAt() const { return m_heardAt; }
    /// Bytes that the host has sent and nobody has read.
    [[nodiscard]] std::size_t waiting() const;
    /// Throws away what the host has sent, @p limit bytes at most, and returns how many that was.
    std::size_t dropInput(std::size_t limit = SIZE_MAX);
    /// Moves bytes that are due into the pseudo-terminal.
    void transmit(Clock::time_point now);

    [[nodiscard]] int master() const { return m_master.get(); }
    [[nodiscard]] int watcher() const { return m_watch.get(); }
    [[nodiscard]] short pollEvents() const;
    /// When to call transmit(), receive() and sample() again even though nothing becomes ready.
    [[nodiscard]] std::optional<Clock::time_point> wakeUp(Clock::time_point now) const;
    /// Looks at the settings and at who has opened or closed the line.
    void sample(Clock::time_point now);

private:
    /// How the two ends go together.
    enum class Fit { Good, Garbled, Blocked };

    /// One direction's place in real time: bytes follow one another from `start` on.
    struct Schedule
    {
        Clock::time_point start;
        std::int64_t count = 0;
        bool running = false;
    };

    [[nodiscard]] Fit fit() const;
    void look(int weight);
    [[nodiscard]] std::chrono::nanoseconds timeOf(std::int64_t bytes) const;
    [[nodiscard]] std::size_t due(Schedule& schedule, Clock::time_point now) const;
    void begin(Schedule& schedule, Clock::time_point now) const;
    void readOpenClose();
    void reportMismatch(const char* direction, std::size_t bytes);
    void garble(Bytes& bytes);
    std::size_t writeOut(const Bytes& bytes);

    Config m_config;
    EventLog& m_events;
    Fd m_master;
    Fd m_slave;  // keeps the master from reporting EIO between two users
    Fd m_watch;  // inotify on the slave
    std::string m_slavePath;
    LineSettings m_expected = kConsoleLine;
    int m_badSamples = 0;  // in a row, up to kCertain
    Clock::time_point m_nextSample;
    std::deque<std::uint8_t> m_output;
    bool m_blocked = false;  // the host's input queue is full
    Schedule m_tx;
    Schedule m_rx;
    Clock::time_point m_heardAt;
    std::minstd_rand m_noise{1};  // NOLINT(cert-msc32-c,cert-msc51-cpp): every run hears the same noise
};
}  // namespace efr32sim
