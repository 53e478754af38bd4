#include "GBSSlave.h"

#include "GOS.h"
#include "GosMutex.h"
#include "LineOwner.h"
#include "NCPManagerSBL.h"
#include "NCP_Manager.h"
#include "gecko.h"

#include <atomic>
#include <mutex>

namespace {
constexpr int kErrnoInvalidArgument = 16;

constexpr std::uint32_t kAdvIntervalMin = 160;  // 100 ms, in units of 0.625 ms
constexpr std::uint32_t kAdvIntervalMax = 320;  // 200 ms
constexpr std::uint8_t kAllAdvChannels = 0x07;  // 37, 38, 39
constexpr std::uint8_t kConnectableScannable = 2;

constexpr std::uint16_t kConnIntervalLowest = 6;  // 7.5 ms, in units of 1.25 ms
constexpr std::uint16_t kConnIntervalHighest = 3200;
constexpr float kAdvIntervalUnitMs = 0.625F;
constexpr float kAdvIntervalLowestMs = 20.0F;
constexpr float kAdvIntervalHighestMs = 10240.0F;
constexpr std::int8_t kNoTxPowerLevel = -128;

// Input and output capabilities (Bluetooth Core, Security Manager).
constexpr std::uint8_t kNoInputNoOutput = 3;
constexpr std::uint8_t kHighestIoCapability = 4;
constexpr std::uint8_t kProtectAgainstMitm = 1;

constexpr GosMutex apiMutex(GBS_API_SEMAPHORE_ID);
thread_local bool isEventTask = false;
std::atomic<int> waitingCalls{0};  // calls that wait for an event, from before they ask for the API lock
std::atomic<bool> eventTaskAsks{false};  // the event task asks for the API lock

/// The event task does without the lock while a call that waits for an event may hold it: that event would
/// not be read before the time-out. An exchange does not need it, it has its own turn.
std::unique_lock<const GosMutex> takeApiLock()
{
    if (!isEventTask)
        return std::unique_lock(apiMutex);
    std::unique_lock lock(apiMutex, std::defer_lock);
    eventTaskAsks = true;  // before it looks, so that of two that begin at once one sees the other
    if (waitingCalls == 0)
        lock.lock();
    eventTaskAsks = false;
    return lock;
}

/// The API lock of a call that waits for an event. An event task that has begun to ask for it goes first.
class WaitingCall
{
public:
    WaitingCall()
    {
        ++waitingCalls;
        apiMutex.lock();
        while (eventTaskAsks) {
            apiMutex.unlock();
            GOS_WaitForDelay(1);
            apiMutex.lock();
        }
    }
    ~WaitingCall()
    {
        apiMutex.unlock();
        --waitingCalls;
    }
    WaitingCall(const WaitingCall&) = delete;
    WaitingCall& operator=(const WaitingCall&) = delete;
};

template <class Function, class... Arguments>
auto locked(Function function, Arguments... arguments)
{
    const auto lock = takeApiLock();
    return function(arguments...);
}

std::uint32_t refuse()
{
    GOS_SetErrno(kErrnoInvalidArgument);
    return 0;
}

/// One call under the lock when the arguments are valid.
template <class Function, class... Arguments>
std::uint32_t checked(bool valid, Function function, Arguments... arguments)
{
    return valid ? locked(function, arguments...) : refuse();
}

/// As checked, for functions whose first argument is a usage.
template <class Function, class... Arguments>
std::uint32_t advertised(bool valid, Function function, tGBS_ADTypeUsage usage, Arguments... arguments)
{
    return checked(valid && usage <= GBS_AD_USAGE_SCAN_RESPONSE, function, usage, arguments...);
}

bool mayHandleEvents(const LineOwner::PumpTurn& turn)
{
    return turn.isAllowed() && NCPManagerSBL_GetIsBootloaderMode() == 0;
}

bool isConnectionInterval(std::uint16_t min, std::uint16_t max)
{
    return min >= kConnIntervalLowest && max <= kConnIntervalHighest && min <= max;
}

bool isAdvInterval(std::uint16_t interval)
{
    const float intervalMs = static_cast<float>(interval) * kAdvIntervalUnitMs;
    return intervalMs >= kAdvIntervalLowestMs && intervalMs <= kAdvIntervalHighestMs;
}
}  // namespace

// ---- Lifecycle --------------------------------------------------------------------------------------------

std::uint32_t GBSSlave_Init(const char* path)
{
    return locked(NCPManager_Init, path);
}

std::uint32_t GBSSlave_Enable()
{
    const WaitingCall call;
    return NCPManager_Enable();
}

std::uint32_t GBSSlave_Disable()
{
    return locked(NCPManager_Disable);
}

std::uint32_t GBSSlave_HelloNCP()
{
    return locked(NCPManager_HelloNCP);
}

std::uint8_t GBSSlave_GetState()
{
    return locked(NCPManager_GetState);
}

std::uint8_t GBSSlave_PeekState()
{
    return NCPManager_GetState();
}

bool GBSSlave_HasBooted()
{
    return NCPManager_HasBooted();
}

std::uint32_t GBSSlave_GetSilence()
{
    return NCPManager_GetSilence();
}

std::uint32_t GBSSlave_GetLinkNumber()
{
    return NCPManager_GetLinkNumber();
}

std::uint32_t GBSSlave_GetLinkStatus()
{
    return GBSSlave_GetState() == GBS_LINK_CONNECTED ? 1 : 0;
}

std::uint32_t GBSSlave_GetAddress(std::uint8_t out[kBdAddressLength])
{
    return locked(NCPManager_GetAddress, out);
}

std::uint32_t GBSSlave_GetNcpAppVersion(std::uint8_t out[kVersionLength])
{
    return locked(NCPManager_GetNcpAppVersion, out);
}

std::uint32_t GBSSlave_GetNcpSdkVersion(std::uint8_t out[kVersionLength])
{
    return locked(NCPManager_GetNcpSdkVersion, out);
}

std::uint32_t GBSSlave_GetNcpSblVersion(std::uint8_t out[kVersionLength])
{
    return locked(NCPManager_GetNcpSblVersion, out);
}

// ---- Events -----------------------------------------------------------------------------------------------

std::uint32_t GBSSlave_TreatInternalEvent(std::uint32_t milliseconds)
{
    return NCPManager_TreatInternalEvent(milliseconds);
}

std::uint32_t GBSSlave_TreatEvent()
{
    isEventTask = true;
    const LineOwner::PumpTurn turn;
    return mayHandleEvents(turn) ? NCPManager_EventHandler() : 0;
}

tGBS_LinkCheck GBSSlave_CheckLink()
{
    const LineOwner::PumpTurn turn;
    if (!mayHandleEvents(turn))
        return GBS_LINK_CHECK_UNKNOWN;
    // Told after the lock has been released: the callbacks take it.
    if (!NCPManager_HasBooted()) {
        if (GBSSlave_HelloNCP() == 1)
            NCPManager_TellBoot();
        return GBS_LINK_CHECK_UNKNOWN;
    }
    return NCPManager_TellConnection(GBSSlave_AskForConnection());
}

tGBS_ConnectionAnswer GBSSlave_AskForConnection()
{
    return locked(NCPManager_AskForConnection);
}

void GBSSlave_SetEventCallback(tGBS_EventCallback callback)
{
    locked(NCPManager_SetEventCallback, callback);
}

void GBSSlave_SetGATTReadCallback(tGBS_GATTReadCallback callback)
{
    locked(NCPManager_SetGATTReadCallback, callback);
}

void GBSSlave_SetGATTWriteCallback(tGBS_GATTWriteCallback callback)
{
    locked(NCPManager_SetGATTWriteCallback, callback);
}

void GBSSlave_SetSMDisplayPasskeyCallback(tGBS_SMDisplayPasskeyCallback callback)
{
    locked(NCPManager_SetSMDisplayPasskeyCallback, callback);
}

void GBSSlave_SetSMConfirmPasskeyCallback(tGBS_SMConfirmPasskeyCallback callback)
{
    locked(NCPManager_SetSMConfirmPasskeyCallback, callback);
}

void GBSSlave_SetGiveDeviceNameCallback(tGBS_DeviceNameCallback callback)
{
    locked(NCPManager_SetDeviceNameCallback, callback);
}

// ---- Connection -------------------------------------------------------------------------------------------

std::uint32_t GBSSlave_MakeDiscoverable(std::uint8_t discoverMode, std::uint16_t duration)
{
    const auto lock = takeApiLock();
    NCPManager_SetAdvTiming(kAdvIntervalMin, kAdvIntervalMax, duration);  // the chip's defaults serve as well
    const std::uint32_t channels = NCPManager_SetAdvChannelMap(kAllAdvChannels);
    return channels == 0 ? 0 : NCPManager_StartAdvertising(discoverMode, kConnectableScannable);
}

std::uint32_t GBSSlave_EndDiscoverable()
{
    return locked(NCPManager_StopAdvertising);
}

std::uint32_t GBSSlave_TerminateLink()
{
    return locked(NCPManager_Disconnect, kConnection);
}

std::uint32_t GBSSlave_SetConnParams(std::uint16_t min, std::uint16_t max, std::uint16_t latency,
                                     std::uint16_t timeout)
{
    return locked(NCPManager_SetConnParams, min, max, latency, timeout);
}

std::uint32_t GBSSlave_ReadRssi(std::int8_t* out)
{
    const WaitingCall call;
    return out == nullptr ? refuse() : NCPManager_ReadRssi(out);
}

std::uint32_t GBSSlave_SetTxPowerDbm(std::int16_t power, std::int16_t* out)
{
    const auto lock = takeApiLock();
    return out == nullptr ? refuse() : NCPManager_SetTxPowerDbm(power, out);
}

// ---- GATT -------------------------------------------------------------------------------------------------

std::uint32_t GBSSlave_GATTNotification(std::uint8_t, std::uint16_t characteristic, std::uint8_t length,
                                        const std::uint8_t* data)
{
    const std::uint32_t link = NCPManager_GetLinkNumber();
    const auto lock = takeApiLock();
    // Whoever held the lock may have begun a new start: what waited for it is not for the next phone.
    return link == NCPManager_GetLinkNumber()
               ? NCPManager_SendNotification(kConnection, characteristic, length, data)
               : 0;
}

std::uint32_t GBSSlave_GetAttributeValue(std::uint16_t attribute, std::uint16_t offset,
                                         tGBS_Attribute_Data* out)
{
    return locked(NCPManager_ReadAttributeValue, attribute, offset, out);
}

std::uint32_t GBSSlave_GetAttributeType(std::uint16_t attribute, tGBS_Attribute_Data* out)
{
    return locked(NCPManager_ReadAttributeType, attribute, out);
}

std::uint32_t GBSSlave_FindAttribute(std::uint16_t start, std::uint8_t length, const std::uint8_t* type,
                                     std::uint16_t* out)
{
    return locked(NCPManager_FindAttribute, start, length, type, out);
}

std::uint32_t GBSSlave_WriteAttributeValue(std::uint16_t attribute, std::uint16_t offset, std::uint8_t length,
                                           const std::uint8_t* data)
{
    return locked(NCPManager_WriteAttributeValue, attribute, offset, length, data);
}

// ---- Security ---------------------------------------------------------------------------------------------

std::uint32_t GBSSlave_SetIOCap(std::uint8_t ioCapability)
{
    if (ioCapability > kHighestIoCapability)
        return 0;
    const std::uint8_t flags = ioCapability == kNoInputNoOutput ? 0 : kProtectAgainstMitm;
    return GBSSlave_SetFlagsAndIOCap(flags, ioCapability);
}

std::uint32_t GBSSlave_SetFlagsAndIOCap(std::uint8_t flags, std::uint8_t ioCapability)
{
    return locked(NCPManager_SMConfigure, flags, ioCapability);
}

std::uint32_t GBSSlave_SetPasskey(std::int32_t passkey)
{
    return locked(NCPManager_SetPasskey, passkey);
}

std::uint32_t GBSSlave_EnterPasskey(std::int32_t passkey)
{
    return locked(NCPManager_EnterPasskey, passkey);
}

std::uint32_t GBSSlave_ConfirmPasskey(std::uint8_t confirm)
{
    return locked(NCPManager_ConfirmPasskey, confirm);
}

std::uint32_t GBSSlave_IncreaseSecurityRequest()
{
    return locked(NCPManager_IncreaseSecurity);
}

std::uint32_t GBSSlave_SetBondMode(_tGBS_GAP_Bonding bonding)
{
    return locked(NCPManager_SetBondMode, bonding);
}

std::uint32_t GBSSlave_EraseSingleBond(std::uint8_t bonding)
{
    return locked(NCPManager_DeleteBonding, bonding);
}

std::uint32_t GBSSlave_EraseAllBonds()
{
    return locked(NCPManager_DeleteBondings);
}

std::uint32_t GBSSlave_GetAllBonds(_tGBS_BondInfo* out, std::uint8_t* count)
{
    const WaitingCall call;
    return NCPManager_GetAllBonds(out, count);
}

// ---- Advertising data -------------------------------------------------------------------------------------

std::uint32_t GBSSlave_ADTypeResetData(tGBS_ADTypeUsage usage)
{
    return advertised(true, NCPManager_ADTypeResetData, usage);
}

std::uint32_t GBSSlave_ADTypeFlags(tGBS_ADTypeUsage usage, std::uint8_t flags)
{
    return advertised(true, NCPManager_ADTypeFlags, usage, flags);
}

std::uint32_t GBSSlave_ADTypeServiceUUID16bit(tGBS_ADTypeUsage usage, std::uint16_t complete,
                                              const std::uint16_t* uuids, std::uint8_t count)
{
    return advertised(true, NCPManager_ADTypeServiceUUID16bit, usage, complete, uuids, count);
}

std::uint32_t GBSSlave_ADTypeServiceUUID128bit(tGBS_ADTypeUsage usage, std::uint16_t complete,
                                               const std::uint32_t* uuids, std::uint8_t count)
{
    return advertised(true, NCPManager_ADTypeServiceUUID128bit, usage, complete, uuids, count);
}

std::uint32_t GBSSlave_ADTypeCompleteLocalName(tGBS_ADTypeUsage usage)
{
    return advertised(true, NCPManager_ADTypeLocalName, usage, 1);
}

std::uint32_t GBSSlave_ADTypeShortenedLocalName(tGBS_ADTypeUsage usage)
{
    return advertised(true, NCPManager_ADTypeLocalName, usage, 0);
}

std::uint32_t GBSSlave_ADTypeTxPowerLevel(tGBS_ADTypeUsage usage, std::int8_t level)
{
    return advertised(level != kNoTxPowerLevel, NCPManager_ADTypeTxPowerLevel, usage, level);
}

std::uint32_t GBSSlave_ADTypeConnectionInterval(tGBS_ADTypeUsage usage, std::uint16_t min, std::uint16_t max)
{
    return advertised(isConnectionInterval(min, max), NCPManager_ADTypeConnectionInterval, usage, min, max);
}

std::uint32_t GBSSlave_ADTypePublicAddress(tGBS_ADTypeUsage usage, const std::uint8_t* address)
{
    return advertised(address != nullptr, NCPManager_ADTypePublicAddress, usage, address);
}

std::uint32_t GBSSlave_ADTypeAdvInterval(tGBS_ADTypeUsage usage, std::uint16_t interval)
{
    return advertised(isAdvInterval(interval), NCPManager_ADTypeAdvInterval, usage, interval);
}

std::uint32_t GBSSlave_ADTypeLeDeviceAddress(tGBS_ADTypeUsage usage, const std::uint8_t* address,
                                             std::uint8_t type)
{
    return advertised(address != nullptr, NCPManager_ADTypeLeDeviceAddress, usage, address, type);
}

std::uint32_t GBSSlave_AdTypeManufacturerSpecificData(tGBS_ADTypeUsage usage,
                                                      tGBS_ManufacturerSpecificData* data)
{
    return advertised(data != nullptr, NCPManager_AdTypeManufacturerSpecificData, usage, data);
}

std::uint32_t GBSSlave_AdTypeGenericData(tGBS_ADTypeUsage usage, std::uint8_t type, std::uint8_t length,
                                         const std::uint8_t* data)
{
    return advertised(data != nullptr, NCPManager_AdTypeGenericData, usage, type, length, data);
}

std::uint32_t GBSSlave_SetNoMappingFlag(std::uint16_t flag)
{
    return NCPManager_SetNoMappingFlag(flag);
}

std::uint32_t GBSSlave_UpdateAdvertisingData(tGBS_ADTypeUsage usage)
{
    return locked(NCPManager_UpdateAdvertisingData, usage);
}

bool GBSSlave_IsConnectionPending()
{
    return NCPManager_IsConnectionPending();
}

// ---- Who owns the serial line -----------------------------------------------------------------------------

void GBSSlave_LetGoLine()
{
    // What the chip that is being reset has reported means nothing any more.
    if (LineOwner::letGo())
        gecko_discard_events();
    NCPManager_EndLink();
}

bool GBSSlave_IsLineHeld()
{
    return LineOwner::isHeld();
}

void GBSSlave_ResumeEvents()
{
    LineOwner::resumeEvents();
}
