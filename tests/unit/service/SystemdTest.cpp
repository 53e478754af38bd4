#include "Systemd.h"
#include "Testing.h"

#include <QCoreApplication>

#include <sys/socket.h>
#include <sys/un.h>

namespace {
/// What systemd is told up to now, without its line ends.
class Notifications
{
public:
    Notifications() : m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
    {
        const std::string path = m_dir.file("notify");
        sockaddr_un address = {AF_UNIX, {}};
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    [[nodiscard]] std::string next() const
    {
        char text[64];
        const ssize_t length = ::recv(m_socket.get(), text, sizeof text, 0);
        return std::string(text, length > 0 ? static_cast<std::size_t>(length) : 0);
    }

private:
    TempDir m_dir;
    UniqueFd m_socket;
};

TEST(Watchdog, IsFedWhileEverythingThatRunsIsAlive)
{
    int argc = 0;
    QCoreApplication application(argc, nullptr);
    const Notifications notifications;
    ::setenv("WATCHDOG_USEC", "1", 1);  // every event feeds
    std::optional<std::chrono::milliseconds> silence;
    const StdoutCapture log;
    Systemd systemd({{"quick", 1s, [] { return 0ms; }}, {"slow", 10s, [&] { return silence; }}});
    systemd.ready();
    EXPECT_EQ(notifications.next(), "READY=1");
    for (const auto& [name, value, told, lines] :
         Rows<std::optional<std::chrono::milliseconds>, const char*, int>{
             {"not running", std::nullopt, "WATCHDOG=1", 0},
             {"alive", 9'999ms, "WATCHDOG=1", 0},
             {"dead", 10'000ms, "", 1},
             {"still dead", 60'000ms, "", 1},
             {"alive again", 0ms, "WATCHDOG=1", 1},
             {"dead again", 20'000ms, "", 2}}) {
        SCOPED_TRACE(name);
        silence = value;
        QEvent event(QEvent::User);
        QCoreApplication::sendEvent(&application, &event);
        EXPECT_EQ(notifications.next(), told);
        EXPECT_EQ(log.count("<WARN > [BriscaService.main] No sign of life of the slow for 10 s"), lines);
    }
}
}  // namespace
