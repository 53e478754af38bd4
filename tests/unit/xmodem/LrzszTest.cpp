// The sender against a receiver that knows nothing of it.
#include "Process.h"
#include "Testing.h"
#include "xymodem.h"

#include <poll.h>

namespace {
/// lrzsz's XMODEM receiver in CRC mode, and the line to it. rx throws its input away right after each of its
/// answers. The latency of a real line hides that; here, what the sender sends is held back until rx waits
/// for it.
class Receiver
{
public:
    Receiver(const std::string& outputPath, const std::string& options)
        : m_rx({"sh", "-c",
                "exec rx --xmodem --with-crc --binary --quiet " + options + " $0 <$1 >$1 2>/dev/null",
                outputPath, m_receiverEnd.slavePath()},
               "/dev/null"),
          m_relay([this](const std::stop_token& stop) { relay(stop); })
    {
    }
    [[nodiscard]] int line() const { return m_senderEnd.slave(); }
    [[nodiscard]] auto end() { return m_rx.waitEnd(kPatience); }

private:
    /// True when rx sleeps, which it does in a read only, or has ended.
    [[nodiscard]] bool isWaiting() const
    {
        const std::string status = readFile("/proc/" + std::to_string(m_rx.pid()) + "/stat");
        const std::size_t state = status.rfind(") ");
        return state == std::string::npos || status[state + 2] == 'S' || status[state + 2] == 'Z';
    }
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
                while (!isWaiting())
                    std::this_thread::yield();
                forward(m_senderEnd, m_receiverEnd);
            }
        }
    }

    Pty m_senderEnd;
    Pty m_receiverEnd;
    Process m_rx;
    std::jthread m_relay;
};

TEST(LrzszReceiver, GetsTheFile)
{
    for (const auto& [options, size] :
         Rows<std::size_t>{{"", 1}, {"", 128}, {"", 129}, {"", 100'000}, {"--errors 12001", 32'773}}) {
        SCOPED_TRACE(std::to_string(size) + " bytes " + options);
        const TempDir directory;
        std::string image = testsupport::content(size);
        const std::string path = directory.write("image", image);
        Receiver receiver(directory.file("received"), options);
        EXPECT_EQ(xymodem_send(receiver.line(), path.c_str(), true), 0);
        EXPECT_EQ(receiver.end(), "exit 0");

        image.resize((image.size() + 127) / 128 * 128, '\xFF');
        EXPECT_TRUE(readFile(directory.file("received")) == image) << "received another file";
    }
}

TEST(LrzszReceiver, EndsWhenItIsCancelled)
{
    const TempDir directory;
    Receiver receiver(directory.file("received"), "");
    char ping = 0;
    EXPECT_EQ(::read(receiver.line(), &ping, 1), 1);
    std::string said;
    UploadProgress progress;
    EXPECT_EQ(xymodem_cancel(receiver.line(), said, 100, progress, -1), 0);
    EXPECT_EQ(receiver.end(), "exit 128");
}
}  // namespace
