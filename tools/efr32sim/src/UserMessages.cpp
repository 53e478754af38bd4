#include "UserMessages.h"

namespace efr32sim {
namespace {
enum Code : std::uint8_t {
    kApplicationVersion = 0,
    kSetTxPower = 2,
    kGetTxPower = 3,
    kSetPowerMode = 4,
    kGetPowerMode = 5,
    kSetChannel = 6,
    kGetChannel = 7,
    kSetTune = 8,
    kGetTune = 9,
    kSaveTune = 10,
    kGetSavedTune = 11,
    kStartStream = 12,
    kStopStream = 13,
    kRailVersion = 14,
};
constexpr std::uint8_t kDone = 0;
constexpr std::uint8_t kRefused = 1;
constexpr std::uint8_t kHighestMode = 1;
constexpr std::uint8_t kHighestChannel = 39;
}  // namespace

Bytes UserMessages::answer(ByteSpan request)
{
    Reader in(request);
    const std::uint8_t code = in.u8();
    Bytes value;
    if (code == kApplicationVersion)
        return applicationVersion();
    if (code == kRailVersion)
        return railVersion();
    if (in.exact())
        value = get(code);
    if (value.empty())
        return {code, set(code, in) ? kDone : kRefused};
    return Writer().u8(code).u8(kDone).raw(value).take();
}

/// Eight bytes, the version at 2, 4 and 6.
Bytes UserMessages::applicationVersion() const
{
    const auto& version = m_board.options().applicationVersion;
    return Writer().u8(kApplicationVersion).u8(kDone).u16(version[0]).u16(version[1]).u16(version[2]).take();
}

/// Fourteen bytes, the version at 6, 7 and 8.
Bytes UserMessages::railVersion() const
{
    Bytes reply(14);
    reply[0] = kRailVersion;
    const auto& version = m_board.options().railVersion;
    std::copy(version.begin(), version.end(), reply.begin() + 6);
    return reply;
}

/// The value that a query asks for; empty when the code is no query.
Bytes UserMessages::get(std::uint8_t code) const
{
    switch (code) {
        case kGetTxPower:
            return {m_state.txPower};
        case kGetPowerMode:
            return {m_state.powerMode};
        case kGetChannel:
            return {m_state.channel};
        case kGetTune:
            return Writer().u32(m_state.tune).take();
        case kGetSavedTune:
            return Writer().u32(m_board.flash().savedTune).take();
        default:
            return {};
    }
}

/// Carries a setting out; false when the code, its arguments or their range are wrong.
bool UserMessages::set(std::uint8_t code, Reader& in)
{
    const auto byte = [&in](std::uint8_t& target, std::uint8_t highest) {
        const std::uint8_t value = in.u8();
        const bool good = in.exact() && value <= highest;
        if (good)
            target = value;
        return good;
    };
    const auto word = [&in](std::uint32_t& target) {
        const std::uint32_t value = in.u32();
        if (in.exact())
            target = value;
        return in.exact();
    };
    switch (code) {
        case kSetTxPower:
            return byte(m_state.txPower, 0xFF);
        case kSetPowerMode:
            return byte(m_state.powerMode, kHighestMode);
        case kSetChannel:
            return byte(m_state.channel, kHighestChannel);
        case kSetTune:
            return word(m_state.tune);
        case kSaveTune:
            return word(m_board.flash().savedTune);
        case kStartStream:
            return m_state.streaming = byte(m_state.stream, kHighestMode);
        case kStopStream:
            m_state.streaming = false;
            return in.exact();
        default:
            return false;
    }
}
}  // namespace efr32sim
