// The requests of the co-processor's own application, carried in user messages. A request is its code and its
// arguments; a reply begins with two bytes of the application's, and its values follow them.

#include "NCP_Exchange.h"
#include "NCP_Manager.h"

#include <array>

using namespace ncp;

namespace {
enum class Request : std::uint8_t {
    GetAppVersion = 0,
    SetTxPower = 2,
    GetTxPower = 3,
    SetPowerMode = 4,
    GetPowerMode = 5,
    SetChannel = 6,
    GetChannel = 7,
    SetFreqTune = 8,
    GetFreqTune = 9,
    SaveFreqTune = 10,
    GetSavedFreqTune = 11,
    StartTxStream = 12,
    StopTxStream = 13,
    GetRailVersion = 14,
};

constexpr std::uint8_t kHighestMode = 1;
constexpr std::uint8_t kHighestChannel = 39;
constexpr std::size_t kReplyStatus = 1;  // 0 is success; only the frequency tuning says so
constexpr std::size_t kReplyValue = 2;

using Reply = std::array<std::uint8_t, 255>;  // the longest that a count byte can announce

template <class... Arguments>
constexpr auto messageOf(Request request, Arguments... arguments)
{
    return std::array{static_cast<std::uint8_t>(request), static_cast<std::uint8_t>(arguments)...};
}

auto wordMessageOf(Request request, std::uint32_t word)
{
    return messageOf(request, word, word >> 8, word >> 16, word >> 24);
}

/// Message whose success is the command's result.
std::uint32_t tell(std::span<const std::uint8_t> message)
{
    return NCPManager_SendUserMessage(static_cast<std::uint8_t>(message.size()), message.data(), nullptr,
                                      nullptr);
}

/// Message whose success is a reply of exactly this length.
bool ask(std::uint8_t replyLength, std::span<const std::uint8_t> message, Reply& reply)
{
    std::uint8_t received = 0;
    return NCPManager_SendUserMessage(static_cast<std::uint8_t>(message.size()), message.data(), &received,
                                      reply.data()) == 1 &&
           received == replyLength;
}

/// @param places of the bytes in the reply
std::uint32_t getBytes(Request request, std::uint8_t replyLength, std::initializer_list<std::size_t> places,
                       std::uint8_t* out)
{
    Reply reply;
    if (!ask(replyLength, messageOf(request), reply))
        return 0;
    for (const std::size_t place : places)
        *out++ = reply[place];
    return 1;
}

std::uint32_t getWord(Request request, std::uint32_t* out)
{
    Reply reply;
    if (!ask(6, messageOf(request), reply))
        return 0;
    *out = gecko_get_u32(&reply[kReplyValue]);
    return 1;
}
}  // namespace

std::uint32_t NCPManager_SendUserMessage(std::uint8_t length, const std::uint8_t* data,
                                         std::uint8_t* replyLength, std::uint8_t* replyData)
{
    const Exchange exchange(kUserMessageToTarget, {array(length, data)});
    if (!exchange.succeeded())
        return 0;
    if (replyLength != nullptr && replyData != nullptr) {
        const auto reply = exchange.outputs().array();
        *replyLength = static_cast<std::uint8_t>(reply.size());
        std::ranges::copy(reply, replyData);
    }
    return 1;
}

std::uint32_t NCPManager_GetNcpAppVersion(std::uint8_t out[kVersionLength])
{
    return getBytes(Request::GetAppVersion, 8, {2, 4, 6}, out);
}

std::uint32_t NCPManager_SetTXPower(std::uint8_t power)
{
    return tell(messageOf(Request::SetTxPower, power));
}

std::uint32_t NCPManager_GetTXPower(std::uint8_t* out)
{
    return getBytes(Request::GetTxPower, 3, {kReplyValue}, out);
}

std::uint32_t NCPManager_SetPowerMode(tGBS_TxPowerMode mode)
{
    return mode > kHighestMode ? 0 : tell(messageOf(Request::SetPowerMode, mode));
}

std::uint32_t NCPManager_GetPowerMode(tGBS_TxPowerMode* out)
{
    return getBytes(Request::GetPowerMode, 3, {kReplyValue}, out);
}

std::uint32_t NCPManager_SetChannel(std::uint8_t channel)
{
    return channel > kHighestChannel ? 0 : tell(messageOf(Request::SetChannel, channel));
}

std::uint32_t NCPManager_GetChannel(std::uint8_t* out)
{
    return getBytes(Request::GetChannel, 3, {kReplyValue}, out);
}

std::uint32_t NCPManager_SetFreqTune(std::uint32_t value)
{
    Reply reply;
    return ask(2, wordMessageOf(Request::SetFreqTune, value), reply) && reply[kReplyStatus] == 0 ? 1 : 0;
}

std::uint32_t NCPManager_GetFreqTune(std::uint32_t* out)
{
    return getWord(Request::GetFreqTune, out);
}

std::uint32_t NCPManager_SaveFreqTune(std::uint32_t value)
{
    return tell(wordMessageOf(Request::SaveFreqTune, value));
}

std::uint32_t NCPManager_GetSavedFreqTune(std::uint32_t* out)
{
    return getWord(Request::GetSavedFreqTune, out);
}

std::uint32_t NCPManager_StartTxStream(tGBS_TxStreamMode mode)
{
    return mode > kHighestMode ? 0 : tell(messageOf(Request::StartTxStream, mode));
}

std::uint32_t NCPManager_StopTxStream()
{
    return tell(messageOf(Request::StopTxStream));
}

std::uint32_t NCPManager_GetRAILVersion(std::uint8_t out[kVersionLength])
{
    return getBytes(Request::GetRailVersion, 14, {6, 7, 8}, out);
}
