#pragma once

// NCPManager: one function for each operation of the BLE co-processor.
//
// Each function turns into one BGAPI command, or a short sequence of them, on the serial line. The functions
// take no API lock: the GBSSlave facade holds GOS semaphore 1 around each call, and nothing else calls them.
// The event task calls NCPManager_EventHandler without that lock.
//
// Unless its description says otherwise a function returns 1 when the co-processor answered with result 0,
// and 0 otherwise: the answer was lost or belongs to another command, the result is an error, an argument is
// out of range (then nothing is sent), or the line has been let go. Outputs are written on success only.
// Arrays are sent as a count byte and the bytes; addresses and UUIDs are little-endian.

#include "GBS_Types.h"

#include <cstdint>

/// The connection of every command that takes one: the system serves one.
constexpr std::uint8_t kConnection = 1;
/// Value of the waiting task when nobody waits; only task ids below it can be woken by an event.
constexpr std::uint16_t kNoWaitingTask = 5;
/// The GOS signal that tells a waiting call that its event has come.
constexpr std::uint32_t kEventCompletedSignal = 2;
/// How long a waiting call waits for its event.
constexpr int kEventTimeoutMs = 5000;

extern "C" {

// ---- Lifecycle --------------------------------------------------------------------------------------------

/// Clears the bond table, opens the serial device, link state 0; returns whether it opened.
std::uint32_t NCPManager_Init(const char* path);
/// Resets the co-processor and waits for its boot event; link state 1 on success.
std::uint32_t NCPManager_Enable();
/// Link state 0. Takes no lock. Returns 1.
std::uint32_t NCPManager_Disable();
/// The chip is reset: link state 0, and what belongs to the link is over. Takes no lock. Any thread.
void NCPManager_EndLink();
/// Resets the co-processor into its normal firmware and waits up to 5 s for the boot event.
std::uint32_t NCPManager_ResetNCP();
std::uint32_t NCPManager_HelloNCP();
/// Link state, a tGBS_LinkState. Any thread.
std::uint8_t NCPManager_GetState();
/// As GBSSlave_HasBooted. Any thread.
bool NCPManager_HasBooted();
/// Milliseconds since the chip last answered a command, with success or an error; 0xFFFFFFFF for any longer
/// time. Any thread.
std::uint32_t NCPManager_GetSilence();
/// As GBSSlave_GetLinkNumber. Any thread.
std::uint32_t NCPManager_GetLinkNumber();
/// Sleeps and returns 1.
std::uint32_t NCPManager_TreatInternalEvent(std::uint32_t milliseconds);
/// Writes the bytes in hexadecimal to standard output.
void NCPManager_PrintData(std::uint32_t size, const std::uint8_t* data);

// ---- System, advertising, connection ----------------------------------------------------------------------

std::uint32_t NCPManager_GetAddress(std::uint8_t out[kBdAddressLength]);
/// @param power in 0.1 dBm @param out the power that was set, in 0.1 dBm
/// @return 1 when the set-power command was answered: its answer has no result code
std::uint32_t NCPManager_SetTxPowerDbm(std::int16_t power, std::int16_t* out);
/// @param min,max interval in units of 0.625 ms @param duration in units of 10 ms, 0 for no end
std::uint32_t NCPManager_SetAdvTiming(std::uint32_t min, std::uint32_t max, std::uint16_t duration);
/// @param map bit 0 is channel 37, bit 1 channel 38, bit 2 channel 39
std::uint32_t NCPManager_SetAdvChannelMap(std::uint8_t map);
/// @param min,max interval in units of 1.25 ms @param timeout in units of 10 ms
std::uint32_t NCPManager_SetConnParams(std::uint16_t min, std::uint16_t max, std::uint16_t latency,
                                       std::uint16_t timeout);
/// Link state 2 as soon as the co-processor answers, even with an error.
std::uint32_t NCPManager_StartAdvertising(std::uint8_t discover, std::uint8_t connect);
/// Link state 1 as soon as the co-processor answers, even with an error.
std::uint32_t NCPManager_StopAdvertising();
std::uint32_t NCPManager_EndProc();
/// @param length 254 and more are not sent
std::uint32_t NCPManager_SetAdvData(tGBS_ADTypeUsage usage, std::uint8_t length, const std::uint8_t* data);
std::uint32_t NCPManager_Disconnect(std::uint8_t connection);
/// Waits for the RSSI event. @param out dBm
std::uint32_t NCPManager_ReadRssi(std::int8_t* out);

// ---- GATT -------------------------------------------------------------------------------------------------

/// @param flags 0 off, 1 notification, 2 indication
std::uint32_t NCPManager_EnableNotification(std::uint8_t connection, std::uint16_t characteristic,
                                            std::uint8_t flags);
/// Sends one notification, with up to 15 attempts 100 ms apart while no answer comes; a refusal is final. The
/// attempts end when the line is let go.
/// @param length 253 and more are never sent; the attempts and their pauses pass all the same
std::uint32_t NCPManager_SendNotification(std::uint8_t connection, std::uint16_t characteristic,
                                          std::uint8_t length, const std::uint8_t* data);
std::uint32_t NCPManager_ReadAttributeValue(std::uint16_t attribute, std::uint16_t offset,
                                            tGBS_Attribute_Data* out);
std::uint32_t NCPManager_ReadAttributeType(std::uint16_t attribute, tGBS_Attribute_Data* out);
/// @param length 252 and more are not sent
std::uint32_t NCPManager_WriteAttributeValue(std::uint16_t attribute, std::uint16_t offset,
                                             std::uint8_t length, const std::uint8_t* data);
/// @param length 254 and more are not sent @param out attribute handle
std::uint32_t NCPManager_FindAttribute(std::uint16_t start, std::uint8_t length, const std::uint8_t* type,
                                       std::uint16_t* out);

// ---- Security ---------------------------------------------------------------------------------------------

std::uint32_t NCPManager_SetBondMode(_tGBS_GAP_Bonding bondable);
std::uint32_t NCPManager_SMConfigure(std::uint8_t flags, std::uint8_t ioCapabilities);
std::uint32_t NCPManager_ConfigureStoreBond(std::uint8_t max, std::uint8_t policy);
std::uint32_t NCPManager_IncreaseSecurity();
std::uint32_t NCPManager_DeleteBonding(std::uint8_t bonding);
std::uint32_t NCPManager_DeleteBondings();
std::uint32_t NCPManager_EnterPasskey(std::int32_t passkey);
/// @param confirm 1 confirms, any other value refuses
std::uint32_t NCPManager_ConfirmPasskey(std::uint8_t confirm);
/// Starts the listing; its entries come as events.
std::uint32_t NCPManager_ListAllBondings();
/// @param confirm sent as it is
std::uint32_t NCPManager_ConfirmBonding(std::uint8_t confirm);
std::uint32_t NCPManager_SetPasskey(std::int32_t passkey);
/// Lists the bonds and waits for the end of the list.
/// @param out room for kBondTableEntries entries, all of which are written @param count valid entries
std::uint32_t NCPManager_GetAllBonds(_tGBS_BondInfo* out, std::uint8_t* count);

// ---- Direct test mode -------------------------------------------------------------------------------------
// Each waits for the chip's event.

/// @param length bytes of a test packet @param channel 2402 MHz + 2 MHz * channel, 0 to 39
std::uint32_t NCPManager_DTMTestTx(tGBS_DTMPacketType packetType, std::uint8_t length, std::uint8_t channel,
                                   tGBS_DTMPhyType phy);
std::uint32_t NCPManager_DTMTestRx(std::uint8_t channel, tGBS_DTMPhyType phy);
/// @param out packets that were received
std::uint32_t NCPManager_EndDTMTest(std::uint16_t* out);

// ---- User messages ----------------------------------------------------------------------------------------
// The co-processor application's own requests.

/// Sends a request of the co-processor application; any length fits.
/// @param replyLength,replyData receive the reply when both are given; replyData has room for 255 bytes
std::uint32_t NCPManager_SendUserMessage(std::uint8_t length, const std::uint8_t* data,
                                         std::uint8_t* replyLength, std::uint8_t* replyData);
std::uint32_t NCPManager_GetNcpAppVersion(std::uint8_t out[kVersionLength]);
std::uint32_t NCPManager_SetTXPower(std::uint8_t power);
std::uint32_t NCPManager_GetTXPower(std::uint8_t* out);
/// @param mode above 1 is not sent
std::uint32_t NCPManager_SetPowerMode(tGBS_TxPowerMode mode);
std::uint32_t NCPManager_GetPowerMode(tGBS_TxPowerMode* out);
/// @param channel above 39 is not sent
std::uint32_t NCPManager_SetChannel(std::uint8_t channel);
std::uint32_t NCPManager_GetChannel(std::uint8_t* out);
std::uint32_t NCPManager_SetFreqTune(std::uint32_t value);
std::uint32_t NCPManager_GetFreqTune(std::uint32_t* out);
std::uint32_t NCPManager_SaveFreqTune(std::uint32_t value);
std::uint32_t NCPManager_GetSavedFreqTune(std::uint32_t* out);
/// @param mode above 1 is not sent
std::uint32_t NCPManager_StartTxStream(tGBS_TxStreamMode mode);
std::uint32_t NCPManager_StopTxStream();
std::uint32_t NCPManager_GetRAILVersion(std::uint8_t out[kVersionLength]);
/// Version of the chip's Bluetooth stack from the last boot event; sends nothing and returns 1.
std::uint32_t NCPManager_GetNcpSdkVersion(std::uint8_t out[kVersionLength]);
/// Version of the chip's bootloader from the last boot event; sends nothing and returns 1.
std::uint32_t NCPManager_GetNcpSblVersion(std::uint8_t out[kVersionLength]);

// ---- Events -----------------------------------------------------------------------------------------------

/// Takes the oldest event, if there is one, and handles it. Event task only.
/// @return 1 when there was one
std::uint32_t NCPManager_EventHandler();
/// Asks for the signal strength of the connection, which only an open one has, and does not wait for it.
tGBS_ConnectionAnswer NCPManager_AskForConnection();
/// Compares the answer with the link state. The second answer that contradicts it, with neither another
/// answer nor an event of the link between, shows an event to be lost, which is handled then. Event task
/// only, without the API lock.
tGBS_LinkCheck NCPManager_TellConnection(tGBS_ConnectionAnswer answer);
/// The chip has answered although no boot event came: handles that event as if it had come, but for its
/// versions. Event task only, without the API lock.
void NCPManager_TellBoot();
/// Whether a connection has been opened that the event handler has yet to see. Any thread.
bool NCPManager_IsConnectionPending();

// Callback setters; null removes a callback. Any thread.
void NCPManager_SetGATTReadCallback(tGBS_GATTReadCallback callback);
void NCPManager_SetGATTWriteCallback(tGBS_GATTWriteCallback callback);
void NCPManager_SetSMDisplayPasskeyCallback(tGBS_SMDisplayPasskeyCallback callback);
void NCPManager_SetSMConfirmPasskeyCallback(tGBS_SMConfirmPasskeyCallback callback);
void NCPManager_SetDeviceNameCallback(tGBS_DeviceNameCallback callback);
void NCPManager_SetEventCallback(tGBS_EventCallback callback);

// ---- Advertising data builder -----------------------------------------------------------------------------
// GOS semaphore 2 guards its state. Each builder returns 1, or 0 when the structure does not fit or the usage
// is above 1. The facade's functions of the same names describe the structures.

std::uint32_t NCPManager_ADTypeResetData(tGBS_ADTypeUsage usage);
std::uint32_t NCPManager_ADTypeFlags(tGBS_ADTypeUsage usage, std::uint8_t flags);
std::uint32_t NCPManager_ADTypeServiceUUID16bit(tGBS_ADTypeUsage usage, std::uint16_t complete,
                                                const std::uint16_t* uuids, std::uint8_t count);
std::uint32_t NCPManager_ADTypeServiceUUID128bit(tGBS_ADTypeUsage usage, std::uint16_t complete,
                                                 const std::uint32_t* uuids, std::uint8_t count);
/// @param complete 1 writes the complete name, 0 cuts it to what fits. A complete name of 30 or 31 bytes does
/// not fit even an empty payload and returns 0.
std::uint32_t NCPManager_ADTypeLocalName(tGBS_ADTypeUsage usage, std::uint8_t complete);
std::uint32_t NCPManager_ADTypeTxPowerLevel(tGBS_ADTypeUsage usage, std::int8_t level);
std::uint32_t NCPManager_ADTypeConnectionInterval(tGBS_ADTypeUsage usage, std::uint16_t min,
                                                  std::uint16_t max);
std::uint32_t NCPManager_ADTypePublicAddress(tGBS_ADTypeUsage usage, const std::uint8_t* address);
std::uint32_t NCPManager_ADTypeLeDeviceAddress(tGBS_ADTypeUsage usage, const std::uint8_t* address,
                                               std::uint8_t type);
std::uint32_t NCPManager_ADTypeAdvInterval(tGBS_ADTypeUsage usage, std::uint16_t interval);
std::uint32_t NCPManager_AdTypeGenericData(tGBS_ADTypeUsage usage, std::uint8_t type, std::uint8_t length,
                                           const std::uint8_t* data);
/// Advertising data that has to be split over fragments blocks the caller for ever with semaphore 2 held.
std::uint32_t NCPManager_AdTypeManufacturerSpecificData(tGBS_ADTypeUsage usage,
                                                        tGBS_ManufacturerSpecificData* data);
/// Takes no lock.
std::uint32_t NCPManager_SetNoMappingFlag(std::uint16_t flag);
/// Sends the scan response, or the next advertising fragment in rotation.
/// @param restart 1 sends the first fragment
std::uint32_t NCPManager_UpdateADTypeFragment(tGBS_ADTypeUsage usage, std::uint16_t restart);
/// Makes the advertising data ready to send and sends its first fragment, or sends the scan response.
std::uint32_t NCPManager_UpdateAdvertisingData(tGBS_ADTypeUsage usage);

/// The name that goes into the local-name structure: the device-name callback's, or "EFR32_NCP" when there is
/// no callback or its name is empty or longer than 64 bytes.
/// @param length receives its length in bytes @return the name, not NUL-terminated
const std::uint8_t* NCP_GetUserDeviceName(std::uint8_t* length);

}  // extern "C"
