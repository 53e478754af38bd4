#include "NCP_Manager.h"

#include "GOS.h"
#include "LineOwner.h"
#include "NCPDriver.h"
#include "NCP_Exchange.h"
#include "NCP_State.h"
#include "facade/Log.h"

#include <algorithm>
#include <cstdio>

using namespace ncp;

BRISCA_LOG_NODE(logNode, "NCP_MANAGER");

namespace {
constexpr std::uint8_t kAdvertisingSet = 0;
constexpr std::uint8_t kBootNormally = 0;
constexpr std::uint8_t kNoEventLimit = 0;  // advertising events
constexpr std::uint8_t kHalt = 1;
constexpr std::uint8_t kResume = 0;
constexpr std::uint16_t kMinCeLength = 0;  // length of a connection event: the chip decides
constexpr std::uint16_t kMaxCeLength = 0xFFFF;

std::uint32_t readAttribute(const Exchange& exchange, tGBS_Attribute_Data* out)
{
    if (!exchange.succeeded())
        return 0;
    const auto bytes = exchange.outputs().array();
    out->length = static_cast<std::uint8_t>(bytes.size());
    std::ranges::copy(bytes, out->value);
    return 1;
}

void flushOutput()
{
    static_cast<void>(std::fflush(stdout));  // a diagnosis aid: there is nobody to tell about a failure
}

/// The link state follows the chip's answer, whatever its result: an advertiser that is already running, or
/// already stopped, answers with an error.
std::uint32_t runAndEnter(tGBS_LinkState state, Command command, std::initializer_list<Field> fields)
{
    const Exchange exchange(command, fields);
    if (exchange.answered())
        noteLinkState(state);
    return exchange.succeeded() ? 1 : 0;
}
}  // namespace

// ---- Lifecycle --------------------------------------------------------------------------------------------

std::uint32_t NCPManager_Init(const char* path)
{
    bonds.clear();
    const std::uint32_t opened = NCPDriver_Init(path);
    NCPManager_EndLink();
    return opened;
}

std::uint32_t NCPManager_Enable()
{
    NCPDriver_Enable();
    const std::uint32_t booted = NCPManager_ResetNCP();
    if (booted == 1)
        noteLinkState(GBS_LINK_READY);
    return booted;
}

std::uint32_t NCPManager_Disable()
{
    NCPDriver_Disable();
    NCPManager_EndLink();
    return 1;
}

std::uint32_t NCPManager_ResetNCP()
{
    EventWait boot(kGbsEventBoot);
    sendOnly(kSystemReset, {u8(kBootNormally)});
    // Without the line nothing was sent, and the next owner of the line must not wait for this wait's end.
    return !LineOwner::isLetGo() && boot.completed() ? 1 : 0;
}

std::uint32_t NCPManager_HelloNCP()
{
    return run(kSystemHello, {});
}

std::uint32_t NCPManager_TreatInternalEvent(std::uint32_t milliseconds)
{
    GOS_WaitForDelay(milliseconds);
    return 1;
}

void NCPManager_PrintData(std::uint32_t size, const std::uint8_t* data)
{
    std::printf("DataSize= %u: Data= ", size);
    flushOutput();
    for (std::uint32_t i = 0; i < size; ++i) {
        std::printf("0x%02X ", data[i]);
        flushOutput();
    }
    std::printf("\n");
    flushOutput();
}

// ---- System, advertising, connection ----------------------------------------------------------------------

std::uint32_t NCPManager_GetAddress(std::uint8_t out[kBdAddressLength])
{
    const Exchange exchange(kSystemGetBtAddress, {});
    if (!exchange.answered())  // this response has no result code
        return 0;
    exchange.payload().copy(out, kBdAddressLength);
    return 1;
}

std::uint32_t NCPManager_SetTxPowerDbm(std::int16_t power, std::int16_t* out)
{
    run(kSystemHalt, {u8(kHalt)});
    bool answered = false;
    {
        const Exchange exchange(kSystemSetTxPower, {i16(power)});
        answered = exchange.answered();
        if (answered)
            *out = exchange.payload().i16();  // stands where other responses have their result code
    }
    run(kSystemHalt, {u8(kResume)});
    return answered ? 1 : 0;
}

std::uint32_t NCPManager_SetAdvTiming(std::uint32_t min, std::uint32_t max, std::uint16_t duration)
{
    return run(kLeGapSetAdvertiseTiming,
               {u8(kAdvertisingSet), u32(min), u32(max), u16(duration), u8(kNoEventLimit)});
}

std::uint32_t NCPManager_SetAdvChannelMap(std::uint8_t map)
{
    return run(kLeGapSetAdvertiseChannelMap, {u8(kAdvertisingSet), u8(map)});
}

std::uint32_t NCPManager_SetConnParams(std::uint16_t min, std::uint16_t max, std::uint16_t latency,
                                       std::uint16_t timeout)
{
    return run(kLeGapSetConnTimingParameters,
               {u16(min), u16(max), u16(latency), u16(timeout), u16(kMinCeLength), u16(kMaxCeLength)});
}

std::uint32_t NCPManager_StartAdvertising(std::uint8_t discover, std::uint8_t connect)
{
    return runAndEnter(GBS_LINK_ADVERTISING, kLeGapStartAdvertising,
                       {u8(kAdvertisingSet), u8(discover), u8(connect)});
}

std::uint32_t NCPManager_StopAdvertising()
{
    return runAndEnter(GBS_LINK_READY, kLeGapStopAdvertising, {u8(kAdvertisingSet)});
}

std::uint32_t NCPManager_EndProc()
{
    return run(kLeGapEndProcedure, {});
}

std::uint32_t NCPManager_SetAdvData(tGBS_ADTypeUsage usage, std::uint8_t length, const std::uint8_t* data)
{
    return run(kLeGapBt5SetAdvData, {u8(kAdvertisingSet), u8(usage), array(length, data)});
}

std::uint32_t NCPManager_Disconnect(std::uint8_t connection)
{
    return run(kLeConnectionClose, {u8(connection)});
}

std::uint32_t NCPManager_ReadRssi(std::int8_t* out)
{
    if (runAndWait(kLeConnectionGetRssi, {u8(kConnection)}, kEventRssi) != 1)
        return 0;
    *out = lastRssi;
    return 1;
}

tGBS_ConnectionAnswer NCPManager_AskForConnection()
{
    constexpr std::uint16_t kSuccess = 0;
    constexpr std::uint16_t kInvalidConnectionHandle = 0x0101;
    constexpr std::uint16_t kNotConnected = 0x0186;
    const Exchange exchange(kLeConnectionGetRssi, {u8(kConnection)});
    if (!exchange.answered())
        return GBS_CONNECTION_UNKNOWN;
    switch (exchange.result()) {
        case kSuccess:
            return GBS_CONNECTION_OPEN;
        case kInvalidConnectionHandle:
        case kNotConnected:
            return GBS_CONNECTION_NONE;
        default:
            return GBS_CONNECTION_UNKNOWN;
    }
}

// ---- GATT -------------------------------------------------------------------------------------------------

std::uint32_t NCPManager_EnableNotification(std::uint8_t connection, std::uint16_t characteristic,
                                            std::uint8_t flags)
{
    return run(kGattSetCharacteristicNotification, {u8(connection), u16(characteristic), u8(flags)});
}

std::uint32_t NCPManager_ReadAttributeValue(std::uint16_t attribute, std::uint16_t offset,
                                            tGBS_Attribute_Data* out)
{
    return readAttribute({kGattServerReadAttributeValue, {u16(attribute), u16(offset)}}, out);
}

std::uint32_t NCPManager_ReadAttributeType(std::uint16_t attribute, tGBS_Attribute_Data* out)
{
    return readAttribute({kGattServerReadAttributeType, {u16(attribute)}}, out);
}

std::uint32_t NCPManager_WriteAttributeValue(std::uint16_t attribute, std::uint16_t offset,
                                             std::uint8_t length, const std::uint8_t* data)
{
    return run(kGattServerWriteAttributeValue, {u16(attribute), u16(offset), array(length, data)});
}

std::uint32_t NCPManager_FindAttribute(std::uint16_t start, std::uint8_t length, const std::uint8_t* type,
                                       std::uint16_t* out)
{
    const Exchange exchange(kGattServerFindAttribute, {u16(start), array(length, type)});
    if (!exchange.succeeded())
        return 0;
    *out = exchange.outputs().u16();
    return 1;
}

// ---- Security ---------------------------------------------------------------------------------------------

std::uint32_t NCPManager_SetBondMode(_tGBS_GAP_Bonding bondable)
{
    BRISCA_DEBUG(logNode, "[NCPManager_SetBondMode] is bondable  = %d ", bondable);
    const std::uint32_t result = run(kSmSetBondableMode, {u8(bondable)});
    BRISCA_DEBUG(logNode, "[NCPManager_SetBondMode] Result = %d", static_cast<int>(result));
    return result;
}

std::uint32_t NCPManager_SMConfigure(std::uint8_t flags, std::uint8_t ioCapabilities)
{
    BRISCA_DEBUG(logNode, "[NCPManager_SMConfigure] Flags = %d , IOCapabilities = %d", flags, ioCapabilities);
    const std::uint32_t result = run(kSmConfigure, {u8(flags), u8(ioCapabilities)});
    BRISCA_DEBUG(logNode, "[NCPManager_SMConfigure] Result = %d", static_cast<int>(result));
    return result;
}

std::uint32_t NCPManager_ConfigureStoreBond(std::uint8_t max, std::uint8_t policy)
{
    return run(kSmStoreBondingConfiguration, {u8(max), u8(policy)});
}

std::uint32_t NCPManager_IncreaseSecurity()
{
    return run(kSmIncreaseSecurity, {u8(kConnection)});
}

std::uint32_t NCPManager_DeleteBonding(std::uint8_t bonding)
{
    return run(kSmDeleteBonding, {u8(bonding)});
}

std::uint32_t NCPManager_DeleteBondings()
{
    return run(kSmDeleteBondings, {});
}

std::uint32_t NCPManager_EnterPasskey(std::int32_t passkey)
{
    return run(kSmEnterPasskey, {u8(kConnection), i32(passkey)});
}

std::uint32_t NCPManager_ConfirmPasskey(std::uint8_t confirm)
{
    return run(kSmPasskeyConfirm, {u8(kConnection), u8(confirm == 1 ? 1 : 0)});
}

std::uint32_t NCPManager_ListAllBondings()
{
    return run(kSmListAllBondings, {});
}

std::uint32_t NCPManager_ConfirmBonding(std::uint8_t confirm)
{
    return run(kSmBondingConfirm, {u8(kConnection), u8(confirm)});
}

std::uint32_t NCPManager_SetPasskey(std::int32_t passkey)
{
    return run(kSmSetPasskey, {i32(passkey)});
}

std::uint32_t NCPManager_GetAllBonds(_tGBS_BondInfo* out, std::uint8_t* count)
{
    bonds.restart();
    EventWait listed(kEventBondsListed);
    if (NCPManager_ListAllBondings() != 1 || !listed.completed())
        return 0;
    *count = bonds.copyTo(out);
    return 1;
}

// ---- Direct test mode -------------------------------------------------------------------------------------

std::uint32_t NCPManager_DTMTestTx(tGBS_DTMPacketType packetType, std::uint8_t length, std::uint8_t channel,
                                   tGBS_DTMPhyType phy)
{
    return runAndWait(kTestDtmTx, {u8(packetType), u8(length), u8(channel), u8(phy)}, kEventDtmCompleted);
}

std::uint32_t NCPManager_DTMTestRx(std::uint8_t channel, tGBS_DTMPhyType phy)
{
    return runAndWait(kTestDtmRx, {u8(channel), u8(phy)}, kEventDtmCompleted);
}

std::uint32_t NCPManager_EndDTMTest(std::uint16_t* out)
{
    if (runAndWait(kTestDtmEnd, {}, kEventDtmCompleted) != 1)
        return 0;
    *out = dtmPackets;
    return 1;
}
