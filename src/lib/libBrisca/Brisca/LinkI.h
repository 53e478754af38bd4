#pragma once

#include "GBS_Types.h"

/// The station's link as its watch sees and mends it. The event task alone.
class LinkI
{
public:
    /// What the stack believes of the link; Stopped while nothing may be done about it, Booting until the
    /// chip has told or shown that it runs.
    enum class State { Stopped, Booting, OffAir, Advertising, Connected };

    virtual ~LinkI() = default;
    [[nodiscard]] virtual State look() const = 0;
    /// Asks the chip whether the belief is true, and makes up for an event that was lost.
    [[nodiscard]] virtual tGBS_LinkCheck check() = 0;
    /// Puts the station on the air, whatever the chip has lost.
    virtual void advertise() = 0;
    /// Stops advertising and sets up anew what a restart of the chip loses.
    /// @return false when a step failed, or a phone has just connected: nothing but the stop was sent then
    [[nodiscard]] virtual bool refresh() = 0;
};
