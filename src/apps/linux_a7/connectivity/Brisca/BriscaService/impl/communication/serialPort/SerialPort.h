#pragma once

#include <termios.h>
#include <QString>

#include <vector>

/// Line speed; each value is the termios constant, as cfsetspeed() takes it.
enum class BaudRate : speed_t {
    Baud9600 = B9600,
    Baud19200 = B19200,
    Baud38400 = B38400,
    Baud57600 = B57600,
    Baud115200 = B115200,
    Baud230400 = B230400,
    Baud460800 = B460800,
    Baud921600 = B921600,
};

/// Data bits a character; each value is a termios CSIZE mask.
enum class CharacterSize : tcflag_t {
    Cs5 = CS5,
    Cs6 = CS6,
    Cs7 = CS7,
    Cs8 = CS8,
};

enum class StopBits : int {
    One = 0,
    Two = 1,
};

enum class Parity : int {
    None = 0,
    Even = 1,
    Odd = 2,
};

/// One serial line in raw mode, without flow control, for blocking use.
///
/// A read waits without limit for its first byte and returns what has arrived by then (VMIN 1, whatever
/// VTIME says). Every failure is one ERROR line and a false (or -1) result; nothing is retried. There is no
/// lock: one thread at a time uses the port.
class SerialPort
{
public:
    /// Stores the settings; opens nothing.
    /// @param port path of the terminal device
    SerialPort(const QString& port, BaudRate baudRate, CharacterSize characterSize, StopBits stopBits,
               Parity parity);
    virtual ~SerialPort();
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;

    /// Opens the device, applies the settings and drops what both queues hold. Opening an open port opens the
    /// device once more and forgets the earlier descriptor without closing it.
    /// @return true when the settings were applied; when they were not, the port is open nevertheless
    [[nodiscard]] bool openDevice();
    /// Closes the device; does nothing when it is not open.
    void closeDevice();
    [[nodiscard]] bool isOpen() const { return m_open; }

    /// Writes with one system call and waits until the line has sent it.
    /// @param length bytes at @p buffer
    /// @return true when all bytes were taken
    [[nodiscard]] bool write(const char* buffer, int length);
    [[nodiscard]] bool write(char c);
    [[nodiscard]] bool write(const std::vector<char>& data);

    /// Reads with one system call.
    /// @param buffer room for @p length bytes
    /// @return true when exactly @p length bytes came; a shorter read is a failure and its bytes are lost
    [[nodiscard]] bool read(char* buffer, int length);
    /// Reads one byte; @p c is untouched on failure.
    [[nodiscard]] bool read(char& c);
    /// Bytes that wait in the input queue; -1 when the line cannot tell.
    [[nodiscard]] int bytesAvailable();

    [[nodiscard]] const QString& getUARTPort() const { return m_port; }
    /// The descriptor last opened: 0 before the first openDevice(), -1 after one that failed, and a stale
    /// number after closeDevice().
    [[nodiscard]] int descriptor() const { return m_descriptor; }

    /// Waits until the output is sent, then drops what both queues hold.
    void discardBufferedData() const;

    /// Turns RTS/CTS off (false). True does not turn it on: it keeps the line's CRTSCTS bit as it stands and
    /// clears every other control flag. The service never asks for flow control on this line.
    [[nodiscard]] bool setHardwareFlowControl(bool enable);
    /// Drops the input queue and puts the stored settings in force at once.
    [[nodiscard]] bool applyTermiosSettings();

private:
    [[nodiscard]] int openDescriptor() const { return m_open ? m_descriptor : -1; }
    void fillSettings();
    void fillParity();

    QString m_port;
    BaudRate m_baudRate;
    CharacterSize m_characterSize;
    StopBits m_stopBits;
    Parity m_parity;
    int m_descriptor = 0;
    bool m_open = false;
    termios m_settings = {};
};
