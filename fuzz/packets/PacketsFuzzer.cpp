// Feeds the packet reader, the event dispatcher and the commands that read something back: the input is what
// the line delivers. Between its packets the host sends commands, to which the next response belongs.

#include "NCP_Manager.h"
#include "facade/Log.h"
#include "gecko.h"
#include "support/Require.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <span>

namespace {
std::chrono::steady_clock::duration slept{0};
}  // namespace

// Time passes only by sleeping: the wait for the rest of a packet ends after all its looks, but at once.
std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept
{
    return time_point(slept);
}
extern "C" int nanosleep(const timespec* pause, timespec*)
{
    slept += std::chrono::seconds(pause->tv_sec) + std::chrono::nanoseconds(pause->tv_nsec);
    return 0;
}
extern "C" int usleep(useconds_t)
{
    return 0;
}

namespace {
std::span<const std::uint8_t> onLine;

std::int32_t output(std::uint32_t length, const std::uint8_t* bytes)
{
    // Whatever came in, what goes out is one whole command.
    require(length >= kGeckoHeaderSize && length <= sizeof(gecko_cmd_packet) &&
            length - kGeckoHeaderSize == (((bytes[0] & 7u) << 8) | bytes[1]));
    return static_cast<std::int32_t>(length);
}

std::int32_t input(std::uint32_t length, std::uint8_t* buffer)
{
    if (length > onLine.size())
        return -1;
    std::copy_n(onLine.begin(), length, buffer);
    onLine = onLine.subspan(length);
    return static_cast<std::int32_t>(length);
}

std::int32_t peek()
{
    return static_cast<std::int32_t>(onLine.size());
}

std::uint16_t onWrite(std::uint16_t characteristic, std::uint8_t length, std::uint8_t* data)
{
    unsigned sum = characteristic;
    for (const std::uint8_t byte : std::span(data, length))
        sum += byte;
    return sum & 1;
}

std::uint16_t onRead(std::uint16_t characteristic, std::uint8_t* length, std::uint8_t* data)
{
    *length = static_cast<std::uint8_t>(characteristic);
    std::fill_n(data, *length, 0x55);
    return (characteristic >> 8) & 1;
}

void onEvent(std::uint32_t id, gecko_cmd_packet* packet)
{
    require(id == gecko_event_id(*packet));
}

std::uint8_t bytes[256];
std::uint8_t count;
std::uint16_t handle;
std::uint32_t tune;
std::int16_t power;
tGBS_Attribute_Data attribute;

/// The commands whose responses are more than a result.
constexpr void (*kCommands[])() = {
    [] { NCPManager_ReadAttributeValue(1, 0, &attribute); },
    [] { NCPManager_ReadAttributeType(1, &attribute); },
    [] { NCPManager_FindAttribute(1, 2, bytes, &handle); },
    [] { NCPManager_SendUserMessage(1, bytes, &count, bytes); },
    [] { NCPManager_GetNcpAppVersion(bytes); },
    [] { NCPManager_GetRAILVersion(bytes); },
    [] { NCPManager_GetFreqTune(&tune); },
    [] { NCPManager_SetTxPowerDbm(0, &power); },
};
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    LogFacade::setLevel("NCP_MANAGER", LogLevel::Trace);
    bglib_output = output;
    bglib_input = input;
    bglib_peek = peek;
    NCPManager_SetGATTWriteCallback(onWrite);
    NCPManager_SetGATTReadCallback(onRead);
    NCPManager_SetSMDisplayPasskeyCallback([](std::uint32_t) {});
    NCPManager_SetSMConfirmPasskeyCallback([](std::uint32_t) { return std::uint16_t{1}; });
    NCPManager_SetEventCallback(onEvent);
    return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    onLine = {data, size};
    for (unsigned round = 0; gecko_event_pending() != 0; ++round) {
        NCPManager_EventHandler();
        if (round % 4 == 3)
            kCommands[round / 4 % std::size(kCommands)]();
    }
    return 0;
}
