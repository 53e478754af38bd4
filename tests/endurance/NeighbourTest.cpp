// The programs around the service misbehave: the application, the bus, its clients, the reader of the log.
#include "Endurance.h"
#include "Record.h"

#include <sys/socket.h>
#include <sys/stat.h>

namespace {
constexpr const char* kAnswers = "/tmp/ttyBleTx";
constexpr const char* kRequests = "/tmp/ttyBleRx";

/// Writes as an application would, as much as the pipe takes.
void put(const char* pipe, const std::string& bytes)
{
    const UniqueFd fd(::open(pipe, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    ASSERT_NE(fd.get(), -1);
    for (std::size_t at = 0; at < bytes.size();) {
        const ssize_t count = ::write(fd.get(), bytes.data() + at, bytes.size() - at);
        if (count <= 0)
            return;
        at += static_cast<std::size_t>(count);
    }
}

void signalApplication(int signal)
{
    for (const pid_t application : Process::running(APPLICATION_PROGRAM))
        ::kill(application, signal);
}

void removePipes()
{
    for (const char* const pipe : {kAnswers, kRequests})
        std::filesystem::remove(pipe);
}

enum class Recovers { ByItself, ByRestart };

struct Neighbour
{
    const char* name;
    void (*misbehave)();
    Recovers recovers;
    const char* line = "";  // that is logged
};

const std::string kFullPipe(1 << 17, '\0');

const Neighbour kNeighbours[] = {
    {"ApplicationCrashes", [] { signalApplication(SIGSEGV); }, Recovers::ByRestart,
     "The CoAP application ended by itself: "},
    {"ApplicationExits", [] { signalApplication(SIGTERM); }, Recovers::ByRestart,
     "The CoAP application ended by itself: exit status 0"},
    {"ApplicationHangs", [] { signalApplication(SIGSTOP); }, Recovers::ByRestart},
    {"ApplicationHangsForAWhile",
     [] {
         signalApplication(SIGSTOP);
         signalApplication(SIGCONT);
     },
     Recovers::ByItself},
    {"ApplicationHangsBehindAFullPipe",
     [] {
         signalApplication(SIGSTOP);
         put(kRequests, kFullPipe);
     },
     Recovers::ByRestart},
    {"ApplicationWritesHalfAHeader", [] { put(kAnswers, std::string("\0\0\0", 3)); }, Recovers::ByRestart},
    {"ApplicationWritesNonsenseLengths",
     [] { put(kAnswers, std::string("\xFF\xFF\xFF\xFF\0\0\0\0\0\0\x11\x7C", 12)); }, Recovers::ByItself,
     "<ERROR> [Brisca] 4476 is not a valid frame length"},
    {"ApplicationFloods", [] { put(kAnswers, kFullPipe); }, Recovers::ByRestart},
    {"PipesAreRemoved", removePipes, Recovers::ByItself},
    {"PipesAreRemovedAndARestartFollows", removePipes, Recovers::ByRestart},
    {"PipesAreReplaced",
     [] {
         removePipes();
         for (const char* const pipe : {kAnswers, kRequests})
             ASSERT_EQ(::mkfifo(pipe, 0600), 0);
     },
     Recovers::ByRestart},
};

class Neighbours : public Endurance, public testing::WithParamInterface<Neighbour>
{
};

TEST_P(Neighbours, AreSurvived)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    ASSERT_NO_FATAL_FAILURE(expectService("the application runs"));
    for (int round = 0; round < rounds(2); ++round) {
        const std::size_t before = mark();
        GetParam().misbehave();
        EXPECT_TRUE(waitLog(GetParam().line, before)) << GetParam().line;
        EXPECT_EQ(client->call("getBriscaState"), kFirmware);
        if (GetParam().recovers == Recovers::ByRestart) {
            (void)client->pendingSignals();
            client->send("BriscaRestart");
            ASSERT_TRUE(awaitSignal("bleIsStarted"));
        }
        ASSERT_NO_FATAL_FAILURE(expectService("round " + std::to_string(round)));
        endRound(round);
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, Neighbours, testing::ValuesIn(kNeighbours),
                         [](const auto& row) { return std::string(row.param.name); });

class Surroundings : public Endurance
{
protected:
    /// Starts the service with its output going to a command.
    void startWithReader(const std::string& reader)
    {
        service = std::make_unique<Process>(
            std::vector<std::string>{"bash", "-c", "exec \"$0\" > >(" + reader + ") 2>&1", SERVICE_PROGRAM},
            kLog, notified());
        ASSERT_EQ(notify.wait(), "READY=1");
        client->send("startFirmwareApp");
        ASSERT_TRUE(awaitSignal("bleIsStarted"));
    }
    void serveRounds()
    {
        for (int round = 0; round < rounds(3); ++round) {
            ASSERT_NO_FATAL_FAILURE(expectService("round " + std::to_string(round)));
            endRound(round);
        }
    }
};

TEST_F(Surroundings, TheLogsReaderIsGone)
{
    ASSERT_NO_FATAL_FAILURE(startWithReader("head -c 10 >/dev/null"));
    serveRounds();
}

TEST_F(Surroundings, TheLogsReaderIsSlow)
{
    std::ofstream("/evse/data/log.cfg") << "GLOBAL : DEBUG\n";
    ASSERT_NO_FATAL_FAILURE(startWithReader("while read -r line; do sleep 0.002; done"));
    serveRounds();
}

TEST_F(Surroundings, TheLogsReaderStopsForAWhile)
{
    std::ofstream("/evse/data/log.cfg") << "GLOBAL : TRACE\n";
    std::ofstream made(kRecordPath);
    ASSERT_NO_FATAL_FAILURE(startWithReader("exec cat >/dev/null"));
    const auto readers = Process::running(std::filesystem::canonical("/bin/cat"));
    ASSERT_EQ(readers.size(), 1);
    efr32sim::Phone phone(chip);
    ASSERT_TRUE(phone.connect());
    ::kill(readers[0], SIGSTOP);
    std::string request = "0";
    while (isAnswered(phone, request, 1, std::chrono::seconds(3)))
        request = std::to_string(std::stoi(request) + 1);
    ::kill(readers[0], SIGCONT);
    EXPECT_TRUE(waitUntil([&] {
        return readFile(kRecordPath).find(recordHex("echo:" + request) + '\n') != std::string::npos;
    })) << "the request that came while the service stood still";
    expectAnswer(phone, request);
    phone.disconnect();
    serveRounds();
}

TEST_F(Surroundings, TheBusGoesAwayAndReturns)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    for (int round = 0; round < rounds(2); ++round) {
        bus->kill(SIGKILL);
        ASSERT_TRUE(bus->waitEnd(kPatience));
        ASSERT_NO_FATAL_FAILURE(expectService("without a bus " + std::to_string(round)));
        startBus();
        ASSERT_TRUE(waitUntil([this] { return client->call("getBriscaState") == kFirmware; }));
        ASSERT_NO_FATAL_FAILURE(expectService("with a new bus " + std::to_string(round)));
        EXPECT_TRUE(awaitSignal("btDeviceConnected"));
        EXPECT_TRUE(awaitSignal("btDeviceDisconnected"));
        EXPECT_THAT(client->pendingSignals(), IsEmpty()) << "told more than once";
        endRound(round);
    }
}

TEST_F(Surroundings, PipesWereLeftBehindWithBytesInThem)
{
    for (const char* const pipe : {kAnswers, kRequests})
        ASSERT_EQ(::mkfifo(pipe, 0600), 0);
    const UniqueFd keeper(::open(kAnswers, O_RDWR | O_CLOEXEC));
    put(kAnswers, std::string("\0\0\0\5half", 8));
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    serveRounds();
}

TEST_F(Surroundings, TwoClientsCallAtOnce)
{
    ASSERT_NO_FATAL_FAILURE(startIn("FIRMWARE"));
    const auto callMany = [calls = 50 * rounds(1)] {
        BusClient own;
        for (int call = 0; call < calls; ++call) {
            // The chip may answer too late for one command; the text is empty then.
            EXPECT_THAT(own.call("getMacAddress"), testing::AnyOf("060504030201", ""));
            EXPECT_EQ(own.call("getBriscaState"), kFirmware);
            EXPECT_EQ(own.call("getFirmwareVersion"), "");
        }
    };
    std::thread other(callMany);
    callMany();
    other.join();
    serveRounds();
}
}  // namespace
