#include "uart_posix.h"

#include "facade/Log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

BRISCA_LOG_NODE(logNode, "serial_brisca");

namespace {
constexpr int kGiveUpMs = 100;  // the longest that a call sits in the kernel before it looks around
constexpr int kVtimeUnitMs = 100;
constexpr int kMaxVtime = 255;
constexpr std::chrono::milliseconds kSettleTime{50};
constexpr std::chrono::seconds kCloseLimit{1};
constexpr std::size_t kDrainSize = 4;
constexpr int kDrainReads = 1024;  // the terminal's input queue of 4096 bytes
constexpr std::int32_t kFailed = -1;

struct Speed
{
    std::uint32_t baudRate;
    speed_t code;
};
constexpr Speed kSpeeds[] = {{300, B300},     {1200, B1200},   {2400, B2400},
                             {4800, B4800},   {9600, B9600},   {19200, B19200},
                             {38400, B38400}, {57600, B57600}, {115200, B115200}};

// Counts the calls that may be using the descriptor: a look at the line needs no turn (LineOwner.h).
class Users
{
public:
    void enter()
    {
        const std::lock_guard lock(m_mutex);
        ++m_count;
    }
    void leave()
    {
        const std::lock_guard lock(m_mutex);
        if (--m_count == 0)
            m_none.notify_all();
    }
    [[nodiscard]] bool waitUntilNone(std::chrono::milliseconds limit)
    {
        std::unique_lock lock(m_mutex);
        return m_none.wait_for(lock, limit, [this] { return m_count == 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_none;
    unsigned m_count = 0;
};

// The one line of the process.
struct Line
{
    std::atomic<int> fd{-1};
    std::atomic<bool> abandoned{false};
    // A read that would block for another time than kGiveUpMs is preceded by a poll that blocks for that
    // time.
    std::atomic<bool> pollBeforeRead{false};
    Users users;
    termios original = {};  // as the last uartOpen found it; written by uartOpen alone
};
Line& line = *new Line;  // never destroyed: the tasks use it until the process is gone

// While one lives, the descriptor it found is not closed.
class LineUse
{
public:
    LineUse()
    {
        line.users.enter();
        m_fd = line.fd.load();
    }
    ~LineUse() { line.users.leave(); }
    LineUse(const LineUse&) = delete;
    LineUse& operator=(const LineUse&) = delete;

    [[nodiscard]] int fd() const { return m_fd; }
    [[nodiscard]] bool isOpen() const { return m_fd != -1; }
    [[nodiscard]] bool isGivenUp() const { return line.abandoned.load() || line.fd.load() != m_fd; }

private:
    int m_fd;
};

short readiness(int fd, short events, int timeoutMs)
{
    pollfd entry = {fd, events, 0};
    return ::poll(&entry, 1, timeoutMs) > 0 ? entry.revents : short{0};
}

bool isHungUp(int fd)
{
    return (readiness(fd, 0, 0) & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

// One read that ends within kGiveUpMs: what read() returned, but -1 for the 0 of a terminal that hung up,
// which answers every read with 0 at once.
ssize_t readSome(int fd, std::uint8_t* buffer, std::size_t length)
{
    if (line.pollBeforeRead.load() && readiness(fd, POLLIN, kGiveUpMs) == 0)
        return 0;
    const ssize_t got = ::read(fd, buffer, length);
    return got == 0 && isHungUp(fd) ? kFailed : got;
}

// One write of what there is room for. A UART's driver announces room only when it has kilobytes, so that the
// write itself does not block behind a peer that holds CTS.
ssize_t writeSome(int fd, const std::uint8_t* bytes, std::size_t length)
{
    if (readiness(fd, POLLOUT, kGiveUpMs) == 0)
        return 0;
    const ssize_t put = ::write(fd, bytes, length);
    return put == -1 && errno == EAGAIN ? 0 : put;
}

bool report(const char* what, const char* path)
{
    const int error = errno;
    BRISCA_ERROR(logNode, "%s %s - %s(%d).", what, path, std::strerror(error), error);
    return false;
}

const Speed* findSpeed(std::uint32_t baudRate)
{
    const auto* const found = std::find_if(std::begin(kSpeeds), std::end(kSpeeds),
                                           [&](const Speed& speed) { return speed.baudRate == baudRate; });
    return found == std::end(kSpeeds) ? nullptr : found;
}

void makeRaw8N1(termios& attributes, bool flowControl)
{
    ::cfmakeraw(&attributes);
    attributes.c_iflag = IGNBRK;
    attributes.c_oflag = 0;
    attributes.c_lflag = 0;
    attributes.c_cflag &= ~static_cast<tcflag_t>(PARENB | CSTOPB | CSIZE | CRTSCTS);
    attributes.c_cflag |= CS8 | CREAD | CLOCAL | (flowControl ? CRTSCTS : 0);
}

void setReadTiming(termios& attributes, std::int32_t timeoutMs)
{
    attributes.c_cc[VMIN] = timeoutMs < 0 ? 1 : 0;
    attributes.c_cc[VTIME] =
        timeoutMs < 0 ? 0 : static_cast<cc_t>(std::min(timeoutMs / kVtimeUnitMs, kMaxVtime));
}

struct Settings
{
    speed_t speed;
    bool flowControl;
    std::int32_t readTimeoutMs;
};

bool configure(int fd, const char* path, const Settings& settings)
{
    if (::ioctl(fd, TIOCEXCL) == -1)
        return report("Error setting TIOCEXCL on", path);
    if (::tcgetattr(fd, &line.original) == -1)
        return report("Error getting tty attributes", path);
    if (::fcntl(fd, F_SETFL, 0) == -1)
        return report("Error clearing O_NONBLOCK", path);
    termios wanted = line.original;
    if (::cfsetspeed(&wanted, settings.speed) == -1) {
        BRISCA_ERROR(logNode, "Error setting baud rate %s - %s(%d).\n", path, std::strerror(errno), errno);
        return false;
    }
    makeRaw8N1(wanted, settings.flowControl);
    setReadTiming(wanted, settings.readTimeoutMs);
    if (::tcsetattr(fd, TCSANOW, &wanted) == -1)
        return report("Error setting tty attributes", path);
    return true;
}

// The configured terminal, or -1.
int openTerminal(const char* path, std::uint32_t baudRate, bool flowControl, std::int32_t readTimeoutMs)
{
    const Speed* const speed = findSpeed(baudRate);
    if (speed == nullptr) {
        report("Baud rate not supported", path);
        return -1;
    }
    const int fd = ::open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd == -1) {
        report("Error opening serial port", path);
        return -1;
    }
    if (!configure(fd, path, {speed->code, flowControl, readTimeoutMs})) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Bounded, because a chip that never stops sending must not keep the caller for ever.
void drain(int fd)
{
    std::uint8_t stale[kDrainSize];
    for (int i = 0; i < kDrainReads; ++i) {
        if (readSome(fd, stale, sizeof stale) != static_cast<ssize_t>(sizeof stale))
            return;
    }
}

std::int32_t closeTerminal(int fd)
{
    ::ioctl(fd, TIOCNXCL);
    // The bound covers a machine that does not schedule; nobody stays in the kernel that long. Should it
    // pass, a descriptor left open is the lesser evil: closed under a reader, its number would soon name
    // another file.
    if (!line.users.waitUntilNone(kCloseLimit)) {
        BRISCA_ERROR(logNode, "[uartClose] Serial port is still in use, descriptor %d is left open", fd);
        errno = EBUSY;
        return kFailed;
    }
    ::tcflush(fd, TCOFLUSH);
    return ::close(fd);
}
}  // namespace

std::int32_t uartOpen(const char* path, std::uint32_t baudRate, std::uint32_t flowControl,
                      std::int32_t readTimeoutMs)
{
    const int earlier = line.fd.exchange(-1);
    if (earlier != -1)
        closeTerminal(earlier);
    line.pollBeforeRead = readTimeoutMs < 0 || readTimeoutMs / kVtimeUnitMs != kGiveUpMs / kVtimeUnitMs;
    const int fd = openTerminal(path, baudRate, flowControl != 0, readTimeoutMs);
    if (fd == -1) {
        BRISCA_ERROR(logNode, "[uartOpen] Failed to open serial port");
        return kFailed;
    }
    std::this_thread::sleep_for(kSettleTime);
    drain(fd);
    line.abandoned = false;
    line.fd = fd;
    return 0;
}

std::int32_t uartRx(std::uint32_t length, std::uint8_t* buffer)
{
    const LineUse use;
    if (!use.isOpen()) {
        BRISCA_ERROR(logNode, "[uartRx] Invalid handle");
        return kFailed;
    }
    for (std::uint32_t done = 0; done < length;) {
        if (use.isGivenUp())
            return kFailed;
        const ssize_t got = readSome(use.fd(), buffer + done, length - done);
        if (got < 0) {
            BRISCA_ERROR(logNode, "[uartRx] Failed to read from serial port");
            return kFailed;
        }
        done += static_cast<std::uint32_t>(got);
    }
    BRISCA_DEBUG(logNode, "[uartRx] Read %d bytes from serial port", static_cast<int>(length));
    return static_cast<std::int32_t>(length);
}

std::int32_t uartRxNonBlocking(std::uint32_t length, std::uint8_t* buffer)
{
    const LineUse use;
    return use.isOpen() && !use.isGivenUp() ? static_cast<std::int32_t>(::read(use.fd(), buffer, length))
                                            : kFailed;
}

std::int32_t uartRxPeek()
{
    const LineUse use;
    int waiting = 0;
    const bool usable = use.isOpen() && !use.isGivenUp();
    return usable && ::ioctl(use.fd(), FIONREAD, &waiting) != -1 ? waiting : kFailed;
}

std::int32_t uartTx(std::uint32_t length, const std::uint8_t* bytes)
{
    const LineUse use;
    if (!use.isOpen()) {
        BRISCA_ERROR(logNode, "[uartTx] Invalid handle");
        return kFailed;
    }
    for (std::uint32_t done = 0; done < length;) {
        if (use.isGivenUp())
            return kFailed;
        const ssize_t put = writeSome(use.fd(), bytes + done, length - done);
        if (put < 0) {
            BRISCA_ERROR(logNode, "[uartTx] Failed to write to serial port");
            return kFailed;
        }
        done += static_cast<std::uint32_t>(put);
    }
    BRISCA_DEBUG(logNode, " Write %d bytes to serial port", static_cast<int>(length));
    return static_cast<std::int32_t>(length);
}

void uartAbandon()
{
    const LineUse use;
    line.abandoned = true;
    if (use.isOpen())
        ::tcflush(use.fd(), TCOFLUSH);
}

std::int32_t uartClose()
{
    const std::int32_t result = closeTerminal(line.fd.exchange(-1));
    if (result == -1) {
        const int error = errno;
        BRISCA_ERROR(logNode, "Error opening serial port - %s(%d).", std::strerror(error), error);
    }
    return result;
}
