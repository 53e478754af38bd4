#include "NCPDriver.h"
#include "Testing.h"
#include "uart_posix.h"

#include <termios.h>

namespace {
constexpr std::uint32_t kBaud = 115200;

class SerialLine : public testing::Test
{
protected:
    ~SerialLine() override
    {
        const StdoutCapture quiet;
        uartClose();
    }
    void open() const { ASSERT_EQ(uartOpen(pty.slavePath().c_str(), kBaud, 1, 100), 0); }

    Pty pty;
};

TEST_F(SerialLine, HasItsTermiosInForceAfterOpen)
{
    for (const auto& [name, baud, flowControl, timeoutMs, speed, vmin, vtime] :
         Rows<std::uint32_t, std::uint32_t, std::int32_t, speed_t, unsigned, unsigned>{
             {"as for the co-processor", 115200, 1, 100, B115200, 0, 1},
             {"blocking reads", 9600, 0, -1, B9600, 1, 0},
             {"reads that do not wait", 300, 1, 0, B300, 0, 0},
             {"the longest time-out", 57600, 0, 1000000, B57600, 0, 255}}) {
        SCOPED_TRACE(name);
        termios found = {};
        ::tcgetattr(pty.slave(), &found);
        found.c_iflag = ICRNL | IXON | ISTRIP;
        found.c_oflag = OPOST | ONLCR;
        found.c_lflag = ICANON | ECHO | ISIG;
        found.c_cflag |= CSTOPB | CRTSCTS;
        ::tcsetattr(pty.slave(), TCSANOW, &found);

        ASSERT_EQ(uartOpen(pty.slavePath().c_str(), baud, flowControl, timeoutMs), 0);

        ::tcgetattr(pty.slave(), &found);
        EXPECT_EQ(found.c_iflag, tcflag_t{IGNBRK});
        EXPECT_EQ(found.c_oflag, 0U);
        EXPECT_EQ(found.c_lflag, 0U);
        const tcflag_t flow = flowControl != 0 ? CRTSCTS : 0;
        EXPECT_EQ(found.c_cflag & (PARENB | CSTOPB | CSIZE | CREAD | CLOCAL | CRTSCTS),
                  CS8 | CREAD | CLOCAL | flow);
        EXPECT_EQ(::cfgetispeed(&found), speed);
        EXPECT_EQ(::cfgetospeed(&found), speed);
        EXPECT_EQ(found.c_cc[VMIN], vmin);
        EXPECT_EQ(found.c_cc[VTIME], vtime);
    }
}

TEST_F(SerialLine, IsLoggedAndGoneWhenItCannotBeOpened)
{
    for (const auto& [path, baud, logged] : Rows<std::uint32_t, const char*>{
             {"/dev/null", 230400, "Baud rate not supported /dev/null - Success(0)."},
             {"/dev/no-such-line", kBaud,
              "Error opening serial port /dev/no-such-line - No such file or directory(2)."},
             {"/dev/null", kBaud,
              "Error setting TIOCEXCL on /dev/null - Inappropriate ioctl for device(25)."}}) {
        open();  // what was open before is given up, too
        const StdoutCapture log;
        const std::size_t before = entriesOf("/proc/self/fd");
        std::uint8_t byte = 0;
        errno = 0;
        EXPECT_EQ(uartOpen(path, baud, 1, 100), -1);
        EXPECT_EQ(uartRx(1, &byte), -1);
        EXPECT_EQ(uartTx(1, &byte), -1);
        EXPECT_EQ(uartRxNonBlocking(1, &byte), -1);
        EXPECT_EQ(uartRxPeek(), -1);
        EXPECT_EQ(entriesOf("/proc/self/fd"), before - 1);
        EXPECT_THAT(log.logLines(),
                    ElementsAre(std::string("<ERROR> [serial_brisca] ") + logged,
                                "<ERROR> [serial_brisca] [uartOpen] Failed to open serial port",
                                "<ERROR> [serial_brisca] [uartRx] Invalid handle",
                                "<ERROR> [serial_brisca] [uartTx] Invalid handle"));
    }
}

TEST_F(SerialLine, DropsStaleInputAndReadsWhatComesInPieces)
{
    pty.write("stale text of the bootloader, 45 bytes long..");
    ASSERT_TRUE(pty.hasArrived());
    open();
    EXPECT_EQ(uartRxPeek(), 0);

    std::thread chip([this] {
        pty.write("ab");
        EXPECT_TRUE(waitUntil([] { return uartRxPeek() == 0; })) << "the first piece was not taken";
        std::this_thread::sleep_for(150ms);  // longer than one read waits
        pty.write("cde");
    });
    std::uint8_t bytes[4] = {};
    EXPECT_EQ(uartRx(4, bytes), 4);
    chip.join();
    EXPECT_EQ(std::string(std::begin(bytes), std::end(bytes)), "abcd");
    EXPECT_EQ(uartRxNonBlocking(4, bytes), 1);
    EXPECT_EQ(uartRxNonBlocking(4, bytes), 0) << "the time-out of one read";
}

TEST_F(SerialLine, RxAllTakesWhatWaitsWithinItsBounds)
{
    open();
    std::uint8_t bytes[kRxAllCapacity + 1] = {};
    EXPECT_EQ(NCPDriver_RxAll(bytes), 0U);
    pty.write(std::string(kRxAllCapacity + 44, 'x'));
    ASSERT_TRUE(waitUntil([] { return uartRxPeek() == 300; }));
    EXPECT_EQ(NCPDriver_RxAll(bytes, 4), 4U);
    EXPECT_EQ(NCPDriver_RxAll(bytes), kRxAllCapacity);
    EXPECT_EQ(bytes[kRxAllCapacity], 0) << "beyond the buffer's capacity";
    EXPECT_EQ(NCPDriver_RxAll(bytes), 40U);
    uartClose();
    EXPECT_EQ(NCPDriver_RxAll(bytes), 0U);
}
}  // namespace
