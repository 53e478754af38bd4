// The sender against a receiver that knows nothing of it.
#include "Process.h"
#include "Testing.h"
#include "xymodem.h"

#include <poll.h>

namespace {
/// lrzsz's XMODEM receiver in CRC mode on a pseudo-terminal; the test holds the line's other end.
class Rx
{
public:
    Rx(const std::string& line, const std::string& outputPath, const std::string& options)
        : m_process({"sh", "-c",
                     "exec rx --xmodem --with-crc --binary --quiet " + options + " " + outputPath + " <" +
                         line + " >" + line + " 2>/dev/null"},
                    "/dev/null")
    {
    }
    /// True when rx sleeps, which it does in a read only, or has ended.
    [[nodiscard]] bool isWaiting() const
    {
        const std::string status = readFile("/proc/" + std::to_string(m_process.pid()) + "/stat");
        const std::size_t state = status.rfind(") ");
        return state == std::string::npos || status[state + 2] == 'S' || status[state + 2] == 'Z';
    }
    [[nodiscard]] auto end() { return m_process.waitEnd(kPatience); }

private:
    Process m_process;
};

/// The line between the sender and rx, which throws its input away right after each of its answers. The
/// latency of a real line hides that; here, what the sender sends is held back until rx waits for it.
class Line
{
public:
    explicit Line(const std::string& outputPath, const std::string& options)
        : receiver(m_receiverEnd.slavePath(), outputPath, options),
          m_relay([this](const std::stop_token& stop) { relay(stop); })
    {
    }
    [[nodiscard]] int sender() const { return m_senderEnd.slave(); }

private:
    static void forward(const Pty& from, const Pty& to)
    {
        char bytes[512];
        const ssize_t count = ::read(from.master(), bytes, sizeof bytes);
        if (count > 0)
            to.write({bytes, static_cast<std::size_t>(count)});
    }
    void relay(const std::stop_token& stop) const
    {
        pollfd ends[] = {{m_senderEnd.master(), POLLIN, 0}, {m_receiverEnd.master(), POLLIN, 0}};
        while (!stop.stop_requested()) {
            ::poll(ends, 2, 10);
            if (ends[1].revents != 0)
                forward(m_receiverEnd, m_senderEnd);
            if (ends[0].revents != 0) {
                while (!receiver.isWaiting())
                    std::this_thread::yield();
                forward(m_senderEnd, m_receiverEnd);
            }
        }
    }

    Pty m_senderEnd;
    Pty m_receiverEnd;

public:
    Rx receiver;

private:
    std::jthread m_relay;
};

TEST(LrzszReceiver, GetsTheFile)
{
    const struct
    {
        std::size_t size;
        const char* options = "";
    } rows[] = {{1}, {127}, {128}, {129}, {32'773}, {100'000}, {32'773, "--errors 12001"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.size) + " bytes " + row.options);
        const TempDir directory;
        std::string image = testsupport::content(row.size);
        const std::string path = directory.write("image", image);
        Line line(directory.file("received"), row.options);
        EXPECT_EQ(xymodem_send(line.sender(), path.c_str(), true), 0);
        EXPECT_EQ(line.receiver.end(), "exit 0");

        image.resize((image.size() + 127) / 128 * 128, '\xFF');
        EXPECT_TRUE(readFile(directory.file("received")) == image) << "received another file";
    }
}

TEST(LrzszReceiver, EndsWhenItIsCancelled)
{
    const TempDir directory;
    Line line(directory.file("received"), "");
    char ping = 0;
    EXPECT_EQ(::read(line.sender(), &ping, 1), 1);
    std::string said;
    UploadProgress progress;
    EXPECT_EQ(xymodem_cancel(line.sender(), said, 100, progress, -1), 0);
    EXPECT_EQ(line.receiver.end(), "exit 128");
}
}  // namespace
