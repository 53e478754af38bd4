#pragma once

// GBSSlave: the BLE peripheral stack as the rest of the system sees it.
//
// Every function checks its arguments, takes the API lock (GOS semaphore 1), does one operation on the
// co-processor and releases the lock. Unless its description says otherwise a function
//  - may be called from any task or thread, and also from the event callbacks,
//  - returns 1 for success and 0 for failure: an argument out of range, a command that was lost or that the
//    chip refused, or a line that has been let go (see the end of this file),
//  - takes at least 10 ms for each command that it sends.
// An argument out of range also sets the GOS errno to 16; then nothing is sent and the lock is not taken.

#include "GBS_Types.h"

#ifdef __cplusplus
extern "C" {
#endif

// ---- Lifecycle --------------------------------------------------------------------------------------------

/// Opens the co-processor's serial device and takes the line; clears the bond table; link state 0. May be
/// called any number of times: every call opens the line anew.
/// @param path serial device, for example "/dev/evse/tty_efr32"
GBS_NODISCARD uint32_t GBSSlave_Init(const char* path);
/// Resets the co-processor and waits up to 5 s for its boot event; link state 1 on success. Only from a GOS
/// task, and not from the one that calls GBSSlave_TreatEvent. A wait that runs out sets the GOS errno to 22.
GBS_NODISCARD uint32_t GBSSlave_Enable(void);
/// Link state 0. Nothing is sent. Returns 1.
uint32_t GBSSlave_Disable(void);
/// Asks the co-processor for a sign of life.
GBS_NODISCARD uint32_t GBSSlave_HelloNCP(void);
/// Link state, a tGBS_LinkState: 0 disabled, 1 ready, 2 advertising, 4 connected.
GBS_NODISCARD uint8_t GBSSlave_GetState(void);
/// The same without the API lock, which a command of another task may hold for seconds. Any thread.
GBS_NODISCARD uint8_t GBSSlave_PeekState(void);
/// Whether the chip has reported its boot, or anything that follows one, since the link was last disabled.
/// Does not take the API lock. Any thread.
GBS_NODISCARD bool GBSSlave_HasBooted(void);
/// Milliseconds since the chip last answered a command, with success or an error; 0xFFFFFFFF for any longer
/// time. Does not take the API lock. Any thread.
GBS_NODISCARD uint32_t GBSSlave_GetSilence(void);
/// Number of the link, or while none is open of the next one: a new one when a link ends, by its event or by
/// that of the chip's restart, when the line is let go, and with every GBSSlave_Init. What belongs to a
/// phone, fragments and answers, is over when it has changed. Never 0 in practice. Any thread, without a
/// lock.
GBS_NODISCARD uint32_t GBSSlave_GetLinkNumber(void);
/// 1 when a central is connected, else 0.
GBS_NODISCARD uint32_t GBSSlave_GetLinkStatus(void);
/// The chip's public device address, least significant byte first.
GBS_NODISCARD uint32_t GBSSlave_GetAddress(uint8_t out[kBdAddressLength]);
/// Version of the co-processor application, asked from the chip.
GBS_NODISCARD uint32_t GBSSlave_GetNcpAppVersion(uint8_t out[kVersionLength]);
/// Version of the chip's Bluetooth stack as the last boot event reported it; 0.0.0 before the first.
uint32_t GBSSlave_GetNcpSdkVersion(uint8_t out[kVersionLength]);
/// Version of the chip's bootloader as the last boot event reported it; 0.0.0 before the first.
uint32_t GBSSlave_GetNcpSblVersion(uint8_t out[kVersionLength]);

// ---- Events -----------------------------------------------------------------------------------------------

/// Sleeps without a lock and returns 1.
uint32_t GBSSlave_TreatInternalEvent(uint32_t milliseconds);
/// Handles the oldest event of the co-processor, if there is one: updates the link state, answers GATT
/// requests through the callbacks, wakes a waiting call. Called again and again by one task, the event task,
/// without a lock. Does nothing while the line is let go or events are suspended, and while the co-processor
/// is in its serial bootloader.
/// @return 1 when an event was there
uint32_t GBSSlave_TreatEvent(void);
/// Asks the chip whether a connection is open, and when the link state says otherwise for the second time
/// handles the event that was lost on the line as if it had come. Event task, without a lock; does nothing
/// when GBSSlave_TreatEvent would not. Of a chip that has not reported its boot it asks for a sign of life,
/// and an answer shows the boot event to be lost.
tGBS_LinkCheck GBSSlave_CheckLink(void);
/// The question of GBSSlave_CheckLink alone.
GBS_NODISCARD tGBS_ConnectionAnswer GBSSlave_AskForConnection(void);

// Callback setters; null removes a callback. A callback may be replaced at any time.
void GBSSlave_SetEventCallback(tGBS_EventCallback callback);
void GBSSlave_SetGATTReadCallback(tGBS_GATTReadCallback callback);
void GBSSlave_SetGATTWriteCallback(tGBS_GATTWriteCallback callback);
void GBSSlave_SetSMDisplayPasskeyCallback(tGBS_SMDisplayPasskeyCallback callback);
void GBSSlave_SetSMConfirmPasskeyCallback(tGBS_SMConfirmPasskeyCallback callback);
void GBSSlave_SetGiveDeviceNameCallback(tGBS_DeviceNameCallback callback);

// ---- Connection -------------------------------------------------------------------------------------------

/// Starts connectable advertising every 100 to 200 ms on all three advertising channels.
/// @param discoverMode the chip's discoverable mode: 0 to 4, where 4 advertises the data of
///                     GBSSlave_UpdateAdvertisingData
/// @param duration     in units of 10 ms; 0 advertises until it is stopped
GBS_NODISCARD uint32_t GBSSlave_MakeDiscoverable(uint8_t discoverMode, uint16_t duration);
/// Stops advertising.
uint32_t GBSSlave_EndDiscoverable(void);
/// Drops the connected central.
GBS_NODISCARD uint32_t GBSSlave_TerminateLink(void);
/// Connection parameters to ask of every central.
/// @param min,max interval in units of 1.25 ms
/// @param latency connection events that the peripheral may skip
/// @param timeout supervision timeout in units of 10 ms
GBS_NODISCARD uint32_t GBSSlave_SetConnParams(uint16_t min, uint16_t max, uint16_t latency, uint16_t timeout);
/// Signal strength of the connection in dBm. Waits up to 5 s for the chip's event: only from a GOS task, and
/// not from the event task. A null pointer is refused inside the lock.
GBS_NODISCARD uint32_t GBSSlave_ReadRssi(int8_t* out);
/// Sets the largest transmit power; the radio is halted meanwhile.
/// @param power in 0.1 dBm
/// @param out   receives the power that the chip set, in 0.1 dBm; a null pointer is refused inside the lock
GBS_NODISCARD uint32_t GBSSlave_SetTxPowerDbm(int16_t power, int16_t* out);

// ---- GATT -------------------------------------------------------------------------------------------------

/// Sends one notification on connection 1. Up to 15 attempts 100 ms apart while the co-processor does not
/// answer; they end when the line is let go. A notification that it refuses is not repeated, and one whose
/// link ended while it waited for the API lock is not sent.
/// @param connection ignored; the system serves one connection
/// @param length     bytes at @p data; 253 and more are never sent and fail after all attempts
GBS_NODISCARD uint32_t GBSSlave_GATTNotification(uint8_t connection, uint16_t characteristic, uint8_t length,
                                                 const uint8_t* data);
/// Reads the value of an attribute of the chip's own database.
GBS_NODISCARD uint32_t GBSSlave_GetAttributeValue(uint16_t attribute, uint16_t offset,
                                                  tGBS_Attribute_Data* out);
/// Reads the type (UUID) of an attribute.
GBS_NODISCARD uint32_t GBSSlave_GetAttributeType(uint16_t attribute, tGBS_Attribute_Data* out);
/// Finds the first attribute of a type from a handle on.
/// @param type little-endian UUID of @p length bytes; 254 and more bytes fail unsent
/// @param out  receives the attribute's handle
GBS_NODISCARD uint32_t GBSSlave_FindAttribute(uint16_t start, uint8_t length, const uint8_t* type,
                                              uint16_t* out);
/// Writes an attribute of the chip's own database; 252 and more bytes fail unsent.
GBS_NODISCARD uint32_t GBSSlave_WriteAttributeValue(uint16_t attribute, uint16_t offset, uint8_t length,
                                                    const uint8_t* data);

// ---- Security ---------------------------------------------------------------------------------------------

/// Sets the station's input and output capability: 0 display only, 1 display and yes/no, 2 keyboard only,
/// 3 none, 4 keyboard and display. 3 is sent with flags 0, the others with flags 1 (protection against a man
/// in the middle). 5 and above return 0 without an errno.
GBS_NODISCARD uint32_t GBSSlave_SetIOCap(uint8_t ioCapability);
/// Sets security flags and capability as they are given.
uint32_t GBSSlave_SetFlagsAndIOCap(uint8_t flags, uint8_t ioCapability);
/// Fixes the passkey (0 to 999999) of later pairings; -1 makes the chip choose one each time.
GBS_NODISCARD uint32_t GBSSlave_SetPasskey(int32_t passkey);
/// Answers the chip's passkey request.
GBS_NODISCARD uint32_t GBSSlave_EnterPasskey(int32_t passkey);
/// Answers the chip's request to compare passkeys: 1 confirms, anything else refuses.
GBS_NODISCARD uint32_t GBSSlave_ConfirmPasskey(uint8_t confirm);
/// Asks the central to encrypt or to raise the level of the connection.
GBS_NODISCARD uint32_t GBSSlave_IncreaseSecurityRequest(void);
GBS_NODISCARD uint32_t GBSSlave_SetBondMode(_tGBS_GAP_Bonding bonding);
/// Deletes one bond of the chip, by its handle.
GBS_NODISCARD uint32_t GBSSlave_EraseSingleBond(uint8_t bonding);
GBS_NODISCARD uint32_t GBSSlave_EraseAllBonds(void);
/// Lists the chip's bonds, waiting up to 5 s for them: only from a GOS task, and not from the event task.
/// @param out   room for kBondTableEntries entries (112 bytes), all of which are written
/// @param count receives how many are valid; a longer list is cut
GBS_NODISCARD uint32_t GBSSlave_GetAllBonds(_tGBS_BondInfo* out, uint8_t* count);

// ---- Advertising data -------------------------------------------------------------------------------------
// Each builder appends one AD structure (Bluetooth Core Supplement, CSS: length, type, data) to a payload of
// 31 bytes. The scan response is one payload. Advertising data that does not fit one is spread over up to ten
// fragments, each with its own Flags structure 02 01 05. A structure that does not fit returns 0 and changes
// nothing. Nothing is sent before GBSSlave_UpdateAdvertisingData.

/// Empties the payloads of one usage.
uint32_t GBSSlave_ADTypeResetData(tGBS_ADTypeUsage usage);
/// Flags.
uint32_t GBSSlave_ADTypeFlags(tGBS_ADTypeUsage usage, uint8_t flags);
/// List of 16-bit service UUIDs; complete when @p complete is 1. A null array returns 0.
uint32_t GBSSlave_ADTypeServiceUUID16bit(tGBS_ADTypeUsage usage, uint16_t complete, const uint16_t* uuids,
                                         uint8_t count);
/// List of 128-bit service UUIDs; complete when @p complete is 1. A null array returns 0.
/// @param uuids 4 * count words, four words a UUID, the least significant one first
uint32_t GBSSlave_ADTypeServiceUUID128bit(tGBS_ADTypeUsage usage, uint16_t complete, const uint32_t* uuids,
                                          uint8_t count);
/// Complete local name, from the device-name callback ("EFR32_NCP" without one). The structure takes two
/// bytes more than the name: a name of 30 or 31 bytes does not fit even an empty scan response and returns 0.
uint32_t GBSSlave_ADTypeCompleteLocalName(tGBS_ADTypeUsage usage);
/// Local name cut to what fits; written as a complete name when all of it fits.
uint32_t GBSSlave_ADTypeShortenedLocalName(tGBS_ADTypeUsage usage);
/// Transmit power level in dBm; -128 is invalid.
uint32_t GBSSlave_ADTypeTxPowerLevel(tGBS_ADTypeUsage usage, int8_t level);
/// Preferred connection interval, in units of 1.25 ms: 6 <= min <= max <= 3200.
uint32_t GBSSlave_ADTypeConnectionInterval(tGBS_ADTypeUsage usage, uint16_t min, uint16_t max);
/// Public target address, least significant byte first.
uint32_t GBSSlave_ADTypePublicAddress(tGBS_ADTypeUsage usage, const uint8_t* address);
/// Advertising interval, in units of 0.625 ms: 32 to 16384.
uint32_t GBSSlave_ADTypeAdvInterval(tGBS_ADTypeUsage usage, uint16_t interval);
/// LE Bluetooth device address. The type byte goes in front of the address, where the CSS puts it behind.
uint32_t GBSSlave_ADTypeLeDeviceAddress(tGBS_ADTypeUsage usage, const uint8_t* address, uint8_t type);
/// Manufacturer-specific data; see the record for what the call changes in it. Advertising data that does not
/// fit the rest of the current fragment, and so has to be split, blocks the caller for ever with semaphores 1
/// and 2 held: callers keep it within one payload.
uint32_t GBSSlave_AdTypeManufacturerSpecificData(tGBS_ADTypeUsage usage, tGBS_ManufacturerSpecificData* data);
/// A structure of any type. Room for one byte more than it takes is asked for, so that none ends exactly at
/// byte 31.
uint32_t GBSSlave_AdTypeGenericData(tGBS_ADTypeUsage usage, uint8_t type, uint8_t length,
                                    const uint8_t* data);
/// 1 leaves the byte, the flags and the extra byte out of manufacturer-specific data; 0 puts them in. Takes
/// no lock.
uint32_t GBSSlave_SetNoMappingFlag(uint16_t flag);
/// Sends the scan response, or the first advertising fragment, to the chip. The usage is not checked for an
/// errno; one above 1 returns 0.
GBS_NODISCARD uint32_t GBSSlave_UpdateAdvertisingData(tGBS_ADTypeUsage usage);

/// Whether a phone has connected and the event task has not been told yet. Does not take the API lock. Any
/// thread.
GBS_NODISCARD bool GBSSlave_IsConnectionPending(void);

// ---- Who owns the serial line -----------------------------------------------------------------------------
// The chip's bootloader console and this stack share one serial device, one owner at a time. GBSSlave_Init
// takes the line for the stack.

/// Lets go of the line before another user of the device opens it, and suspends event handling: commands fail
/// at once with no byte on the line, reads and writes in progress give up, the device is closed. Bounded;
/// does not take the API lock. Called by the thread that is about to reset the chip (the service's main
/// thread), never from a callback of this stack. Calling it again, or before the first GBSSlave_Init, does no
/// harm.
void GBSSlave_LetGoLine(void);
/// True from GBSSlave_Init on until the line is let go. Any thread.
GBS_NODISCARD bool GBSSlave_IsLineHeld(void);
/// Ends the suspension of event handling that GBSSlave_LetGoLine began. Called by the thread that starts the
/// stack (the service's main thread), after GBSSlave_Init and when the callbacks are ready for the boot
/// event.
void GBSSlave_ResumeEvents(void);

#ifdef __cplusplus
}  // extern "C"
#endif
