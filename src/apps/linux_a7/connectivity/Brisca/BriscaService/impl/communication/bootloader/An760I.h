#pragma once

#include <QString>

#include <vector>

/// The console of the chip's standalone UART bootloader, as the states use it. Main thread only.
class An760I
{
public:
    virtual ~An760I() = default;

    /// Opens the serial port. @return false when that fails, and when the port is open already
    virtual bool open() = 0;
    /// Closes the serial port. A running upload is ended and reported first.
    virtual void close() = 0;
    /// Makes the console print its menu and prompt.
    virtual bool sendCarriageReturn() = 0;
    /// Appends what the console prints to @p received until the prompt has come.
    /// @return true when the prompt was found; false as soon as a read fails
    virtual bool waitCommandPrompt(std::vector<char>& received) = 0;
    /// Gives the console's information text, decoded as UTF-8, up to and including its prompt.
    /// @return true when it was read; otherwise @p version is empty
    virtual bool getFirmwareVersion(QString& version) = 0;
    /// Makes the bootloader run the application firmware. Nothing is read back.
    virtual bool startFirmware() = 0;
    /// Starts the upload of a firmware image; returns at once. The outcome is reported later.
    virtual void updateFirmware(const QString& filePath) = 0;
};
