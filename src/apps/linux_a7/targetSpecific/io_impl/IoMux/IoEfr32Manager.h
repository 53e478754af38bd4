#pragma once

#include "IoEfr32ManagerI.h"

class OutputPinI;

/// Drives the active-low reset input of the EFR32. Main thread only.
class IoEfr32Manager : public IoEfr32ManagerI
{
public:
    /// @param pin the reset pin, low holds the chip in reset; it must outlive the manager
    explicit IoEfr32Manager(OutputPinI& pin);

    /// Pulls the pin low and, unless the chip is to stay in reset, lets it go high again 100 ms later, which
    /// blocks the caller for that long. The Bluetooth manager is told that its stack is no longer started.
    void resetEfr32(bool holdInReset) override;

private:
    OutputPinI& m_pin;
};
