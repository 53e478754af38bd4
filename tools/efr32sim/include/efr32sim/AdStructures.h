#pragma once

#include "efr32sim/Types.h"

#include <optional>
#include <string>
#include <vector>

namespace efr32sim {
/// One AD structure of an advertising payload (Bluetooth Core Supplement, part A).
struct AdStructure
{
    std::uint8_t type = 0;
    Bytes data;
    bool operator==(const AdStructure&) const = default;
};

/// A payload, taken apart. A length byte of 0 ends it early.
struct AdStructures
{
    std::vector<AdStructure> structures;
    bool malformed = false;  ///< a structure reaches beyond the payload's end, or bytes follow the early end

    [[nodiscard]] const AdStructure* find(std::uint8_t type) const;
    /// Complete (0x09) or shortened (0x08) local name.
    [[nodiscard]] std::optional<std::string> localName() const;
    [[nodiscard]] std::optional<std::uint8_t> flags() const;
};
[[nodiscard]] AdStructures decodeAdStructures(ByteSpan payload);
/// "Flags", "Complete Local Name", ... or "AD type 0xNN".
[[nodiscard]] std::string adTypeName(std::uint8_t type);
}  // namespace efr32sim
