#pragma once

/// One digital output of the controller.
class OutputPinI
{
public:
    virtual ~OutputPinI() = default;

    /// Same as set(true).
    virtual void setHigh() = 0;
    /// Same as set(false).
    virtual void setLow() = 0;
    /// Drives the pin to the level. Failures are logged, not reported.
    virtual void set(bool value) = 0;
};
