#pragma once

#include "FaultPlan.h"
#include "efr32sim/Chip.h"

#include <algorithm>
#include <functional>

namespace efr32sim {
/// What survives a reset.
struct Flash
{
    struct Bond
    {
        std::uint8_t handle = 0;
        Address address{};
        std::uint8_t addressType = 0;
    };
    Bytes image;
    unsigned imageCount = 0;
    bool runnable = true;
    std::vector<Bond> bonds;
    std::uint32_t savedTune = 0;

    /// Stores a bond under the lowest free handle and returns that.
    std::uint8_t addBond(const Address& address, std::uint8_t addressType)
    {
        std::uint8_t handle = 0;
        while (std::any_of(bonds.begin(), bonds.end(),
                           [handle](const Bond& bond) { return bond.handle == handle; }))
            ++handle;
        bonds.push_back({handle, address, addressType});
        return handle;
    }
};

/// What the chip's programs (bootloader, firmware) can ask of the chip they run on.
class Board
{
public:
    virtual ~Board() = default;
    /// Sends bytes to the host, unless the chip has been silenced.
    virtual void say(ByteSpan bytes) = 0;
    /// Runs @p action later, unless the chip is reset or restarted before.
    virtual void after(Milliseconds delay, std::function<void()> action) = 0;
    virtual void report(EventKind kind, Fields fields) = 0;
    virtual FaultPlan& faults() = 0;
    virtual Flash& flash() = 0;
    virtual const ChipOptions& options() const = 0;
    /// Restarts the chip into its firmware.
    virtual void startFirmware() = 0;
    /// Restarts the chip into its bootloader at the speed at which the line is.
    virtual void startBootloader() = 0;
    /// The console begins or ends receiving an image.
    virtual void setUploading(bool uploading) = 0;
};

[[nodiscard]] inline std::int64_t number(std::size_t value)
{
    return static_cast<std::int64_t>(value);
}
}  // namespace efr32sim
