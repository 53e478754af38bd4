#include "Systemd.h"
#include "Testing.h"

#include <QCoreApplication>

namespace {
std::string told;  // to systemd
}

extern "C" int sd_notify(int, const char* state)
{
    told = state;
    return 1;
}

namespace {
TEST(Watchdog, IsFedWhileEverythingThatRunsIsAlive)
{
    int argc = 0;
    QCoreApplication application(argc, nullptr);
    ::setenv("WATCHDOG_USEC", "1", 1);  // every event feeds
    std::optional<std::chrono::milliseconds> silence;
    const StdoutCapture log;
    Systemd systemd({{"quick", 1s, [] { return 0ms; }}, {"slow", 10s, [&] { return silence; }}});
    systemd.ready();
    EXPECT_EQ(std::exchange(told, ""), "READY=1");
    for (const auto& [name, value, expected, lines] :
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
        EXPECT_EQ(std::exchange(told, ""), expected);
        EXPECT_EQ(log.count("<WARN > [BriscaService.main] No sign of life of the slow for 10 s"), lines);
    }
}
}  // namespace
