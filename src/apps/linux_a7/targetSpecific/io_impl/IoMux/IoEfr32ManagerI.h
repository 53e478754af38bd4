#pragma once

/// The reset line of the EFR32 chip.
class IoEfr32ManagerI
{
public:
    virtual ~IoEfr32ManagerI() = default;

    /// Resets the chip.
    /// @param holdInReset true leaves the chip in reset, false lets it run again after the reset pulse
    virtual void resetEfr32(bool holdInReset) = 0;
};
