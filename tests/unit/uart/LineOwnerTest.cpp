#include "LineOwner.h"
#include "NCPDriver.h"
#include "Testing.h"
#include "gecko.h"
#include "uart_posix.h"

#include <poll.h>
#include <sys/ioctl.h>

namespace {
const std::string kEvent("\xA0\x02\x08\x00xy", 6);
const std::string kResponse("\x20\x02\x03\x15\0\0", 6);
const std::string kCommand("\x20\x01\x03\x15\0", 5);

/// Sends a command; true when its response came.
bool command()
{
    const LineOwner::ExchangeTurn turn;
    *gecko_rsp_msg = {};
    gecko_set_header(*gecko_cmd_msg, 0x03, 0x15, 1);
    gecko_cmd_msg->payload[0] = 0;
    gecko_handle_command(0, nullptr);
    return gecko_response_id(*gecko_rsp_msg) == gecko_response_id(0x03, 0x15);
}

class OwnedLine : public testing::Test
{
protected:
    OwnedLine() { take(); }
    ~OwnedLine() override { LineOwner::letGo(); }

    void take() const { ASSERT_EQ(NCPDriver_Init(pty.slavePath().c_str()), 1U); }
    /// Descriptors of this process that are the line.
    [[nodiscard]] int openLines() const
    {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code ignored;
            count += std::filesystem::read_symlink(entry, ignored) == pty.slavePath() ? 1 : 0;
        }
        return count - 1;  // the test's own
    }
    [[nodiscard]] bool isExclusive() const
    {
        int exclusive = 0;
        ::ioctl(pty.slave(), TIOCGEXCL, &exclusive);
        return exclusive != 0;
    }
    /// Whether the chip reads nothing any more, and the host would wait to write.
    [[nodiscard]] bool isFull() const
    {
        pollfd entry = {pty.slave(), POLLOUT, 0};
        return ::poll(&entry, 1, 0) == 0;
    }
    /// Answers the next command of another thread, however late that thread comes to look.
    void answerUntil(const std::atomic<bool>& answered) const
    {
        while (!answered) {
            if (pty.read(kCommand.size(), std::chrono::milliseconds(1)) == kCommand)
                pty.write(kResponse);
        }
    }
    [[nodiscard]] bool commandWorks() const
    {
        std::atomic<bool> answered{false};
        std::thread chip([&] { answerUntil(answered); });
        // A busy machine may answer too late for one command.
        answered = waitUntil(command);
        const bool result = answered.exchange(true);
        chip.join();
        return result;
    }

    Pty pty;
};

TEST_F(OwnedLine, IsTakenAnewAnyNumberOfTimesWithoutLeaking)
{
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(openLines(), 1);
        EXPECT_TRUE(isExclusive());
        EXPECT_TRUE(LineOwner::isHeld());
        EXPECT_FALSE(LineOwner::isLetGo());
        take();
    }
    {
        const StdoutCapture log;
        LineOwner::letGo();
        LineOwner::letGo();
        EXPECT_FALSE(log.contains("<WARN >")) << "there is nothing to wait for";
    }
    EXPECT_EQ(openLines(), 0);
    EXPECT_FALSE(isExclusive());
    EXPECT_FALSE(LineOwner::isHeld());
    EXPECT_TRUE(LineOwner::isLetGo());

    const StdoutCapture quiet;
    EXPECT_EQ(NCPDriver_Init("/dev/no-such-line"), 0U);
    EXPECT_FALSE(LineOwner::isHeld());
    take();
    EXPECT_TRUE(commandWorks());
}

TEST_F(OwnedLine, FailsCommandsWithoutAByteWhileLetGo)
{
    LineOwner::letGo();
    gecko_rsp_msg->header.fill(0xEE);
    gecko_rsp_msg->payload.fill(0xEE);
    gecko_handle_command(0, nullptr);
    EXPECT_EQ(gecko_header(*gecko_rsp_msg), 0U);
    EXPECT_EQ(gecko_rsp_msg->payload[0], 0);
    gecko_handle_command_noresponse(0, nullptr);
    EXPECT_EQ(gecko_peek_event(), nullptr);
    EXPECT_EQ(gecko_wait_event(), nullptr);
    EXPECT_EQ(pty.readAvailable(), "");
}

/// A moment at which a chip may be reset: what another thread is doing.
struct Moment
{
    const char* name;
    void (*activity)();                     // ends only because the line is let go
    std::string fromChip;                   // what the chip had sent, noise that the activity skips
    bool (*reached)(const Pty&) = nullptr;  // whether the activity has come to the moment
    bool fillsTheLine = false;
};

bool nothingWaits(const Pty&)
{
    return uartRxPeek() == 0;
}

bool commandArrived(const Pty& chip)
{
    return chip.read(kCommand.size()) == kCommand;
}

void awaitEvent()
{
    EXPECT_EQ(gecko_wait_event(), nullptr);
}

void sendCommand()
{
    EXPECT_FALSE(command());
}

void writeForEver()
{
    const std::uint8_t bytes[260] = {};
    while (uartTx(sizeof bytes, bytes) != -1) {
    }
}

TEST_F(OwnedLine, EndsWhatIsInProgressWhenItIsLetGoAndIsLeftFree)
{
    for (const Moment& row : {Moment{"while an event is awaited", awaitEvent, "\xFF", nothingWaits},
                              {"while a command waits", sendCommand, "", commandArrived},
                              {"while a writer is held", writeForEver, "", nullptr, true}}) {
        SCOPED_TRACE(row.name);
        pty.write(row.fromChip);
        EXPECT_TRUE(waitUntil([&] { return uartRxPeek() >= std::ssize(row.fromChip); }));
        std::thread activity(row.activity);
        EXPECT_TRUE(waitUntil([&] { return row.fillsTheLine ? isFull() : row.reached(pty); }));
        StdoutCapture log;
        LineOwner::letGo();
        EXPECT_FALSE(log.contains("<WARN >")) << "it ends by itself, not by the limit";
        EXPECT_EQ(openLines(), 0);
        EXPECT_FALSE(isExclusive());
        activity.join();
        (void)pty.readAvailable();
        EXPECT_FALSE(command());
        EXPECT_EQ(pty.readAvailable(), "");
        take();
        EXPECT_TRUE(commandWorks());
    }
}

TEST_F(OwnedLine, EndsItsWaitsWhenItHangsUp)
{
    const StdoutCapture log;
    std::thread pump([] { EXPECT_EQ(gecko_wait_event(), nullptr); });
    pty.hangUp();
    pump.join();
    EXPECT_EQ(gecko_peek_event(), nullptr);
    EXPECT_FALSE(command());
    EXPECT_EQ(log.count("<ERROR> [serial_brisca] [uartRx] Failed to read from serial port"), 1);
    EXPECT_EQ(log.count("<ERROR> [serial_brisca] [uartTx] Failed to write to serial port"), 1);
    EXPECT_EQ(NCPDriver_Init(pty.slavePath().c_str()), 0U);
}

TEST_F(OwnedLine, ChangesHandsUnderFullTraffic)
{
    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    std::thread chip([&] {
        while (!stop) {
            pollfd entry = {pty.master(), POLLIN, 0};
            if (LineOwner::isHeld() && ::poll(&entry, 1, 1) > 0 && !pty.readAvailable().empty())
                pty.write(kEvent + kResponse + kEvent);
        }
    });
    std::thread commander([&] {
        while (!stop)
            failures += command() ? 0 : 1;
    });
    std::thread pump([&] {
        while (!stop) {
            const LineOwner::PumpTurn turn;
            const LineOwner::ExchangeTurn exchange;
            const gecko_cmd_packet* const event = turn.isAllowed() ? gecko_peek_event() : nullptr;
            EXPECT_TRUE(event == nullptr || gecko_header(*event) != 0U);
        }
    });
    for (int i = 0; i < 8; ++i) {
        LineOwner::resumeEvents();
        EXPECT_TRUE(commandWorks());
        LineOwner::letGo();
        (void)pty.readAvailable();
        const int before = failures;
        EXPECT_TRUE(waitUntil([&] { return failures > before + 5; })) << "commands do not fail at once";
        EXPECT_EQ(pty.readAvailable(), "");
        take();
    }
    stop = true;
    chip.join();
    commander.join();
    pump.join();
}
}  // namespace
