// A bus that is not there, says nothing, comes late or has given the name to another.
#include "Station.h"

#include <sys/socket.h>
#include <sys/un.h>

namespace {
constexpr const char* kBusSocket = "/tmp/bus";
constexpr const char* kReached = "Connected to the system bus as org.voltra.brisca";
constexpr const char* kLost = "Connection to the system bus lost";

/// Takes the place of a bus daemon, accepts and never says a word.
class SilentBus
{
public:
    SilentBus() : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
    {
        std::filesystem::remove(kBusSocket);
        sockaddr_un address = {AF_UNIX, "/tmp/bus"};
        if (::bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(m_socket.get(), 8) != 0)
            throw std::runtime_error("no socket for a bus");
    }
    [[nodiscard]] bool isReached()
    {
        m_service = UniqueFd(::accept4(m_socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
        return m_service.get() != -1;
    }

private:
    UniqueFd m_socket;
    UniqueFd m_service;
};

class Bus : public Station
{
protected:
    void killBus()
    {
        bus->kill(SIGKILL);
        ASSERT_TRUE(bus->waitEnd(kPatience));
        std::filesystem::remove(kBusSocket);
    }
    /// Waits until the event loop has turned once more.
    [[nodiscard]] bool eventLoopTurns()
    {
        notify.drain();
        return notify.wait() == "WATCHDOG=1";
    }
    const Process::Environment kWatched = {"WATCHDOG_USEC=4000000"};
};

TEST_F(Bus, ThatSaysNothingAtTheStartIsWaitedForFiveSecondsAndServedWhenItSpeaks)
{
    bus->kill(SIGSTOP);
    startService(kWatched);
    EXPECT_TRUE(eventLoopTurns());
    EXPECT_THAT(linesWith({kReached, "WARN", "ERROR"}), SizeIs(0));
    bus->kill(SIGCONT);
    EXPECT_TRUE(waitLog(kReached));
    EXPECT_EQ(client->call("getBriscaState"), kBootloader);
}

TEST_F(Bus, WhoseSuccessorSaysNothingIsLookedForAndItsReturnIsToldOnce)
{
    startService(kWatched);
    ASSERT_NO_FATAL_FAILURE(killBus());
    {
        SilentBus silent;
        ASSERT_TRUE(waitUntil([&] { return silent.isReached(); }));
        EXPECT_TRUE(eventLoopTurns());
    }
    startBus();
    EXPECT_TRUE(waitLog(kReached));
    EXPECT_EQ(client->call("getBriscaState"), kBootloader);
    EXPECT_THAT(linesWith({kLost}), SizeIs(1));
    chip.hangUp();
    client->send("BriscaRestart");
    EXPECT_EQ(client->call("getBriscaState"), kError);
    EXPECT_THAT(linesWith({kReached}), SizeIs(1));
}

TEST_F(Bus, ThatSaysNothingDoesNotKeepAStopWaiting)
{
    startService();
    ASSERT_NO_FATAL_FAILURE(killBus());
    SilentBus silent;
    ASSERT_TRUE(waitUntil([&] { return silent.isReached(); }));
    service->kill(SIGTERM);
    EXPECT_EQ(service->waitEnd(kPatience), "exit 0");
    EXPECT_TRUE(waitLog("Service stopped"));
}

TEST_F(Bus, ThatAppearsAfterTheStartIsToldOnce)
{
    ASSERT_NO_FATAL_FAILURE(killBus());
    startService();
    EXPECT_THAT(linesWith({"ystem bus"}), SizeIs(0));
    startBus();
    EXPECT_TRUE(waitLog(kReached));
    auto events = chip.follow();
    client->send("startFirmwareApp");
    EXPECT_EQ(client->waitSignal(), "bleIsStarted");
    ASSERT_TRUE(events.waitFor(efr32sim::EventKind::Advertising));
    ASSERT_TRUE(events.waitFor(efr32sim::EventKind::Command))
        << "the link watch's, longer than a retry after";
    EXPECT_THAT(linesWith({"ystem bus"}), SizeIs(1));
}

TEST_F(Bus, WhoseNameAnotherHoldsGivesItToASilentServiceOnceItIsFree)
{
    startService();
    Process second({SERVICE_PROGRAM}, "/tmp/second.log", notified());
    EXPECT_EQ(notify.wait(), "READY=1");
    EXPECT_EQ(client->call("getBriscaState"), kBootloader);
    EXPECT_EQ(readFile("/tmp/second.log").find("ystem bus"), std::string::npos);
    service->kill(SIGKILL);
    EXPECT_TRUE(waitUntil([] { return readFile("/tmp/second.log").find(kReached) != std::string::npos; }));
    EXPECT_TRUE(client->nameIsOwned());
}
}  // namespace
