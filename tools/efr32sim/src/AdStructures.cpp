#include "efr32sim/AdStructures.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace efr32sim {
const AdStructure* AdStructures::find(std::uint8_t type) const
{
    const auto found = std::find_if(structures.begin(), structures.end(),
                                    [type](const AdStructure& structure) { return structure.type == type; });
    return found == structures.end() ? nullptr : &*found;
}

std::optional<std::string> AdStructures::localName() const
{
    const AdStructure* name = find(0x09);
    if (name == nullptr)
        name = find(0x08);
    if (name == nullptr)
        return std::nullopt;
    return std::string(name->data.begin(), name->data.end());
}

std::optional<std::uint8_t> AdStructures::flags() const
{
    const AdStructure* flags = find(0x01);
    if (flags == nullptr || flags->data.empty())
        return std::nullopt;
    return flags->data.front();
}

AdStructures decodeAdStructures(ByteSpan payload)
{
    AdStructures result;
    while (!payload.empty()) {
        const std::size_t length = payload[0];
        if (length == 0) {
            result.malformed =
                std::any_of(payload.begin(), payload.end(), [](std::uint8_t byte) { return byte != 0; });
            break;
        }
        if (length >= payload.size()) {
            result.malformed = true;
            break;
        }
        const ByteSpan data = payload.subspan(2, length - 1);
        result.structures.push_back({payload[1], Bytes(data.begin(), data.end())});
        payload = payload.subspan(length + 1);
    }
    return result;
}

std::string adTypeName(std::uint8_t type)
{
    // Bluetooth SIG Assigned Numbers, "Common Data Types".
    struct Name
    {
        std::uint8_t type;
        const char* text;
    };
    static constexpr std::array kNames{
        Name{0x01, "Flags"},
        Name{0x02, "Incomplete List of 16-bit Service UUIDs"},
        Name{0x03, "Complete List of 16-bit Service UUIDs"},
        Name{0x06, "Incomplete List of 128-bit Service UUIDs"},
        Name{0x07, "Complete List of 128-bit Service UUIDs"},
        Name{0x08, "Shortened Local Name"},
        Name{0x09, "Complete Local Name"},
        Name{0x0A, "Tx Power Level"},
        Name{0x12, "Peripheral Connection Interval Range"},
        Name{0x17, "Public Target Address"},
        Name{0x1A, "Advertising Interval"},
        Name{0x1B, "LE Bluetooth Device Address"},
        Name{0xFF, "Manufacturer Specific Data"},
    };
    const auto found =
        std::find_if(kNames.begin(), kNames.end(), [type](const Name& name) { return name.type == type; });
    if (found != kNames.end())
        return found->text;
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "AD type 0x%02X", type);
    return text.data();
}
}  // namespace efr32sim
