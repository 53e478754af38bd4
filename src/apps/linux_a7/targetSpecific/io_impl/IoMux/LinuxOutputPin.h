#pragma once

#include "OutputPinI.h"

/// An output pin that the platform exposes as a file which takes the characters '0' and '1'.
/// Each change opens the file, writes one byte without a line feed and closes the file again.
class LinuxOutputPin : public OutputPinI
{
public:
    /// @param path the pin file; the text is not copied, so it must outlive the pin (a literal does)
    explicit LinuxOutputPin(const char* path);

    void setHigh() override;
    void setLow() override;
    /// A pin file that cannot be opened is logged at ERROR and otherwise ignored, and so is a byte that the
    /// file does not take: the chip's silence on the serial line shows what came of it.
    void set(bool value) override;

private:
    const char* m_path;
};
