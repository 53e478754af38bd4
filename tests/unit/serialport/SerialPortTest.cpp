#include "SerialPort.h"
#include "Testing.h"
#include "facade/LogFacade.h"

#include <sys/resource.h>

namespace {
class SerialPortOnALine : public testing::Test
{
protected:
    SerialPortOnALine() { LogFacade::setLevel("BriscaService.comm.SerialPort", LogLevel::Trace); }

    static SerialPort makePort(const std::string& path, StopBits stopBits = StopBits::One,
                               Parity parity = Parity::None)
    {
        return {QString::fromStdString(path), BaudRate::Baud230400, CharacterSize::Cs8, stopBits, parity};
    }
    void open()
    {
        ASSERT_TRUE(port.openDevice());
        log.clear();
    }
    [[nodiscard]] termios settingsInForce() const
    {
        termios settings = {};
        EXPECT_EQ(::tcgetattr(line.master(), &settings), 0);
        return settings;
    }
    /// Waits until so many bytes can be read; without log lines.
    void waitForInput(int count)
    {
        EXPECT_TRUE(waitUntil([&] { return port.bytesAvailable() == count; }));
        log.clear();
    }
    /// The only log line since the last clear().
    [[nodiscard]] std::string onlyLine() const
    {
        const auto lines = log.logLines();
        EXPECT_EQ(lines.size(), 1U) << log.text();
        return lines.empty() ? "" : lines.front();
    }

    Pty line;
    SerialPort port = makePort(line.slavePath());
    StdoutCapture log;
};

std::string errorLine(const std::string& text)
{
    return "<ERROR> [BriscaService.comm.SerialPort] " + text;
}
TEST_F(SerialPortOnALine, OpensWithTheConsolesSettingsWhateverTheLineHadBefore)
{
    termios dirty = settingsInForce();
    dirty.c_iflag = IXON | IXOFF | ICRNL | BRKINT;
    dirty.c_oflag = OPOST | ONLCR;
    dirty.c_lflag = ICANON | ECHO | ISIG;
    dirty.c_cflag |= CRTSCTS | CSTOPB | HUPCL;
    ASSERT_EQ(::tcsetattr(line.master(), TCSANOW, &dirty), 0);
    line.write("old bytes\n");
    ASSERT_TRUE(line.hasArrived());

    EXPECT_TRUE(port.openDevice());
    const termios now = settingsInForce();
    EXPECT_EQ(now.c_iflag, static_cast<tcflag_t>(IGNBRK));
    EXPECT_EQ(now.c_oflag, 0U);
    EXPECT_EQ(now.c_lflag, 0U);
    EXPECT_EQ(now.c_cflag & (CSIZE | PARENB | CSTOPB | CREAD | CLOCAL | CRTSCTS),
              static_cast<tcflag_t>(CS8 | CREAD | CLOCAL));
    EXPECT_EQ(now.c_cc[VMIN], 1);
    EXPECT_EQ(now.c_cc[VTIME], 5);
    EXPECT_EQ(::cfgetospeed(&now), static_cast<speed_t>(B230400));
    EXPECT_EQ(::cfgetispeed(&now), static_cast<speed_t>(B230400));
    EXPECT_EQ(::fcntl(port.descriptor(), F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR);
    EXPECT_EQ(::fcntl(port.descriptor(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(port.bytesAvailable(), 0) << "bytes from before were kept";
}

TEST_F(SerialPortOnALine, SetsStopBitsParityAndFlowControl)
{
    // A pseudo-terminal clears PARENB by itself, so only the odd bit of a parity can be seen here.
    for (const auto& [name, stopBits, parity, expected] :
         Rows<StopBits, Parity, tcflag_t>{{"one stop bit", StopBits::One, Parity::None, 0},
                                          {"two stop bits", StopBits::Two, Parity::None, CSTOPB},
                                          {"odd parity", StopBits::One, Parity::Odd, PARODD},
                                          {"even parity after odd", StopBits::One, Parity::Even, 0}}) {
        SCOPED_TRACE(name);
        SerialPort other = makePort(line.slavePath(), stopBits, parity);
        EXPECT_TRUE(other.openDevice());
        EXPECT_EQ(settingsInForce().c_cflag & (CSTOPB | PARODD), expected);
    }
    open();
    EXPECT_TRUE(port.setHardwareFlowControl(false));
    EXPECT_EQ(settingsInForce().c_cflag & (CRTSCTS | CLOCAL), static_cast<tcflag_t>(CLOCAL));
    EXPECT_TRUE(port.setHardwareFlowControl(true));
    EXPECT_EQ(settingsInForce().c_cflag & (CRTSCTS | CLOCAL), 0U);
    EXPECT_THAT(log.logLines(), IsEmpty());
}

TEST_F(SerialPortOnALine, CarriesEveryByteBothWaysAndRefusesAShortRead)
{
    open();
    std::string all(256, '\0');
    std::iota(all.begin(), all.end(), '\0');
    EXPECT_TRUE(port.write(all.data(), 256));
    EXPECT_TRUE(port.write('\x11'));
    EXPECT_TRUE(port.write(std::vector<char>{'a', '\0', '\xFF'}));
    EXPECT_EQ(line.read(260), all + "\x11"s + "a\0\xFF"s);
    line.write(all + "\xFE" + "ab");
    waitForInput(259);
    std::string back(256, '\0');
    EXPECT_TRUE(port.read(back.data(), 256));
    EXPECT_EQ(back, all);
    char one = 0;
    EXPECT_TRUE(port.read(one));
    EXPECT_EQ(one, '\xFE');
    EXPECT_THAT(log.logLines(), IsEmpty());
    EXPECT_FALSE(port.read(back.data(), 3));
    EXPECT_THAT(onlyLine(), StartsWith(errorLine("Error during reading of 3 byte, 2 bytes read - ")));
}

TEST_F(SerialPortOnALine, AShortWriteIsAFailureAlsoWhenNothingIsLogged)
{
    const TempDir directory;
    const std::string path = directory.write("no-terminal", "");
    SerialPort file = makePort(path);
    EXPECT_FALSE(file.openDevice());
    EXPECT_TRUE(file.isOpen()) << "a port whose settings were refused stays open";
    EXPECT_EQ(log.count("Error setting tty attributes " + path + " - Inappropriate ioctl for device(25)."),
              1);

    // A file that may grow by three bytes only takes three of five, and then none.
    constexpr off_t kFileLimit = 1 << 20;
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit unlimited = {};
    ::getrlimit(RLIMIT_FSIZE, &unlimited);
    const rlimit limited = {kFileLimit, unlimited.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limited);
    ASSERT_EQ(::lseek(file.descriptor(), kFileLimit - 3, SEEK_SET), kFileLimit - 3);
    log.clear();
    EXPECT_FALSE(file.write(std::vector<char>(5)));
    EXPECT_EQ(onlyLine(), errorLine("Only 3 bytes on 5 are written"));
    LogFacade::setLevel("BriscaService.comm.SerialPort", LogLevel::Crit);
    log.clear();
    EXPECT_FALSE(file.write("hello", 5));
    EXPECT_THAT(log.logLines(), IsEmpty());
    ::setrlimit(RLIMIT_FSIZE, &unlimited);
}

TEST_F(SerialPortOnALine, ADeviceThatIsNotThereIsLogged)
{
    SerialPort missing = makePort("/nowhere/tty");
    EXPECT_FALSE(missing.openDevice());
    EXPECT_FALSE(missing.isOpen());
    EXPECT_EQ(missing.descriptor(), -1);
    EXPECT_EQ(
        log.count(errorLine("Unable to open UART descriptor /nowhere/tty -  No such file or directory(2)")),
        1);
}

TEST_F(SerialPortOnALine, AClosedPortTouchesNoDescriptor)
{
    EXPECT_EQ(port.descriptor(), 0);
    open();
    port.closeDevice();
    port.closeDevice();
    EXPECT_EQ(log.count("UART port closed."), 1);
    // The number of the closed descriptor goes to the next file that is opened.
    const TempDir directory;
    const UniqueFd next(::open(directory.write("pin", "").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(next.get(), port.descriptor());
    log.clear();

    char buffer[3] = {};
    EXPECT_FALSE(port.write('x'));
    EXPECT_FALSE(port.write("xyz", 3));
    EXPECT_FALSE(port.write(std::vector<char>{'x', 'y'}));
    EXPECT_FALSE(port.read(buffer[0]));
    EXPECT_FALSE(port.read(buffer, 3));
    EXPECT_FALSE(port.read(buffer, -1));
    EXPECT_EQ(port.bytesAvailable(), -1);
    EXPECT_FALSE(port.setHardwareFlowControl(false));
    EXPECT_EQ(log.count("<ERROR>"), 7) << "a single character is refused in silence";
    EXPECT_EQ(readFile(directory.file("pin")), "");
}
}  // namespace
