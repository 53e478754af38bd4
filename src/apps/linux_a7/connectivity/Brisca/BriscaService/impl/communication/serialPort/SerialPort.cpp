#include "SerialPort.h"

#include "facade/Log.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

BRISCA_LOG_NODE(logNode, "BriscaService.comm.SerialPort");

namespace {
constexpr cc_t kInterbyteDs = 5;  // without effect at VMIN 1: a read ends with whatever is there

bool isComplete(ssize_t transferred, int length)
{
    return length >= 0 && transferred == length;
}

// A short transfer sets no errno: clear it first, so that the log does not blame an older failure.
ssize_t readOnce(int descriptor, char* buffer, int length)
{
    errno = 0;
    return TEMP_FAILURE_RETRY(::read(descriptor, buffer, static_cast<std::size_t>(length)));
}

ssize_t writeOnce(int descriptor, const char* buffer, int length)
{
    errno = 0;
    return TEMP_FAILURE_RETRY(::write(descriptor, buffer, static_cast<std::size_t>(length)));
}

// A wait that a signal cut short would let the flush that follows it throw unsent bytes away.
void drain(int descriptor)
{
    static_cast<void>(TEMP_FAILURE_RETRY(::tcdrain(descriptor)));
}
}  // namespace

SerialPort::SerialPort(const QString& port, BaudRate baudRate, CharacterSize characterSize, StopBits stopBits,
                       Parity parity)
    : m_port(port),
      m_baudRate(baudRate),
      m_characterSize(characterSize),
      m_stopBits(stopBits),
      m_parity(parity)
{
}

SerialPort::~SerialPort()
{
    closeDevice();
}

bool SerialPort::openDevice()
{
    const QByteArray path = m_port.toUtf8();
    BRISCA_TRACE(logNode, "UART: %s", path.constData());
    m_descriptor = ::open(path.constData(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (m_descriptor == -1) {
        BRISCA_ERROR(logNode, "Unable to open UART descriptor %s -  %s(%d)", path.constData(),
                     std::strerror(errno), errno);
        return false;
    }
    m_open = true;
    fillSettings();
    const bool applied = applyTermiosSettings();
    discardBufferedData();
    BRISCA_TRACE(logNode, "UART port opened.");
    return applied;
}

void SerialPort::fillSettings()
{
    ::tcgetattr(m_descriptor, &m_settings);
    ::cfsetspeed(&m_settings, static_cast<speed_t>(m_baudRate));
    ::cfmakeraw(&m_settings);  // leaves CS8 and VMIN 1
    m_settings.c_iflag = IGNBRK;
    m_settings.c_oflag = 0;
    m_settings.c_cflag |= static_cast<tcflag_t>(m_characterSize) | CREAD | CLOCAL;
    fillParity();
    if (m_stopBits == StopBits::Two)
        m_settings.c_cflag |= CSTOPB;
    else
        m_settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB);
    m_settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
    m_settings.c_lflag = 0;
    m_settings.c_cc[VTIME] = kInterbyteDs;
}

void SerialPort::fillParity()
{
    switch (m_parity) {
        case Parity::None:
            m_settings.c_cflag &= ~static_cast<tcflag_t>(PARENB);
            break;
        case Parity::Even:
            m_settings.c_cflag = (m_settings.c_cflag & ~static_cast<tcflag_t>(PARODD)) | PARENB;
            break;
        case Parity::Odd:
            m_settings.c_cflag |= PARENB | PARODD;
            break;
    }
}

void SerialPort::closeDevice()
{
    if (!m_open)
        return;
    m_open = false;
    ::close(m_descriptor);
    BRISCA_TRACE(logNode, "UART port closed.");
}

bool SerialPort::write(const char* buffer, int length)
{
    const ssize_t written = writeOnce(openDescriptor(), buffer, length);
    const bool complete = isComplete(written, length);
    if (!complete)
        BRISCA_ERROR(logNode, "Only %d bytes on %d are written", static_cast<int>(written), length);
    drain(openDescriptor());
    return complete;
}

bool SerialPort::write(char c)
{
    const bool complete = writeOnce(openDescriptor(), &c, 1) == 1;
    drain(openDescriptor());
    return complete;
}

bool SerialPort::write(const std::vector<char>& data)
{
    return write(data.data(), static_cast<int>(data.size()));
}

bool SerialPort::read(char* buffer, int length)
{
    const ssize_t got = readOnce(openDescriptor(), buffer, length);
    if (isComplete(got, length))
        return true;
    BRISCA_ERROR(logNode, "Error during reading of %d byte, %d bytes read - %s(%d)", length,
                 static_cast<int>(got), std::strerror(errno), errno);
    return false;
}

bool SerialPort::read(char& c)
{
    char byte = 0;
    if (readOnce(openDescriptor(), &byte, 1) != 1) {
        BRISCA_ERROR(logNode, "Error during reading of one byte");
        return false;
    }
    c = byte;
    return true;
}

int SerialPort::bytesAvailable()
{
    int count = -1;
    if (::ioctl(openDescriptor(), FIONREAD, &count) == -1)
        BRISCA_ERROR(logNode, "Error during get the number of byte available: %s(%d)", std::strerror(errno),
                     errno);
    BRISCA_TRACE(logNode, "%d bytes to read on serial port", count);
    return count;
}

void SerialPort::discardBufferedData() const
{
    drain(openDescriptor());
    ::tcflush(openDescriptor(), TCIOFLUSH);
}

bool SerialPort::setHardwareFlowControl(bool enable)
{
    ::tcgetattr(openDescriptor(), &m_settings);
    if (enable)
        m_settings.c_cflag &= CRTSCTS;
    else
        m_settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
    return applyTermiosSettings();
}

bool SerialPort::applyTermiosSettings()
{
    ::tcflush(openDescriptor(), TCIFLUSH);
    if (::tcsetattr(openDescriptor(), TCSANOW, &m_settings) != -1)
        return true;
    BRISCA_ERROR(logNode, "Error setting tty attributes %s - %s(%d).", m_port.toUtf8().constData(),
                 std::strerror(errno), errno);
    return false;
}
