#pragma once

// The records, numbers and callbacks that the BLE peripheral stack shares with its users. Multi-byte fields
// of these records are in host order unless a comment says otherwise; the stack converts them for the air.

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

// For C, whose enumerations have no size of their own and whose functions no attributes.
#ifdef __cplusplus
#define GBS_ENUM(name) enum name : uint8_t
#define GBS_NODISCARD [[nodiscard]]
#else
#include <stdbool.h>
#define GBS_ENUM(name)    \
    typedef uint8_t name; \
    enum name##_Values
#define GBS_NODISCARD
#endif

typedef struct gecko_cmd_packet gecko_cmd_packet;

/// Which of the two payloads of 31 bytes an advertising function works on. Other values are refused.
GBS_ENUM(tGBS_ADTypeUsage){
    GBS_AD_USAGE_ADVERTISING = 0,
    GBS_AD_USAGE_SCAN_RESPONSE = 1,
};

/// What GBSSlave_GetState returns; the numbers are on the service's bus interface too.
GBS_ENUM(tGBS_LinkState){
    GBS_LINK_DISABLED = 0,
    GBS_LINK_READY = 1,
    GBS_LINK_ADVERTISING = 2,
    GBS_LINK_CONNECTED = 4,
};

/// What the chip says of the connection.
GBS_ENUM(tGBS_ConnectionAnswer){
    GBS_CONNECTION_UNKNOWN = 0,  ///< no answer, or one that says nothing about it
    GBS_CONNECTION_NONE = 1,
    GBS_CONNECTION_OPEN = 2,
};

/// What came of comparing that with the link state.
GBS_ENUM(tGBS_LinkCheck){
    GBS_LINK_CHECK_UNKNOWN = 0,  ///< nothing: ask again later
    GBS_LINK_CHECK_AGREES = 1,
    GBS_LINK_CHECK_ENDED = 2,    ///< the connection had ended; this has been told now
    GBS_LINK_CHECK_BEGUN = 3,    ///< a connection had begun; this has been told now
    GBS_LINK_CHECK_DOUBTED = 4,  ///< the first contradiction: ask again soon
};

/// Whether the chip may store bonds.
GBS_ENUM(_tGBS_GAP_Bonding){
    GBS_NOT_BONDABLE = 0,
    GBS_BONDABLE = 1,
};

/// 0 or 1, as the chip's firmware defines them.
typedef uint8_t tGBS_TxPowerMode;
/// 0 or 1, as the chip's firmware defines them.
typedef uint8_t tGBS_TxStreamMode;
/// PHY of the direct test mode, passed to the chip unchanged.
typedef uint8_t tGBS_DTMPhyType;
/// Packet pattern of the direct test mode, passed to the chip unchanged.
typedef uint8_t tGBS_DTMPacketType;

enum {
    kBdAddressLength = 6,    ///< Bluetooth device address, least significant byte first
    kVersionLength = 3,      ///< major, minor, patch
    kBondTableEntries = 14,  ///< of the chip
};

/// One attribute value or type as the chip reports it.
typedef struct tGBS_Attribute_Data
{
    uint8_t length;      ///< valid bytes in value
    uint8_t value[255];  ///< attribute types are little-endian, 2 or 16 bytes
} tGBS_Attribute_Data;

/// One entry of the chip's bond table.
typedef struct _tGBS_BondInfo
{
    uint8_t bonding;                    ///< handle, for GBSSlave_EraseSingleBond
    uint8_t address[kBdAddressLength];  ///< as received
    uint8_t addressType;
} _tGBS_BondInfo;
static_assert(sizeof(_tGBS_BondInfo) * kBondTableEntries == 112, "callers reserve 112 bytes for all bonds");

/// Flags byte of tGBS_ManufacturerSpecificData.
static const uint8_t kManufacturerFlagSplit = 0x80;      // several pieces; set and cleared by the builder
static const uint8_t kManufacturerFlagExtraByte = 0x40;  // the extra byte is present

/// Manufacturer-specific advertising data. The builder works on the record in place: it overwrites the
/// company identifier and the split flag and counts length down to 0, so fill it anew before every call.
typedef struct tGBS_ManufacturerSpecificData
{
    uint16_t companyId;  ///< replaced by the configured company identifier; little-endian on the air
    uint16_t value;      ///< little-endian on the air
    uint8_t byte;        ///< left out, like flags and extra, when the no-mapping flag is 1
    uint8_t flags;       ///< kManufacturerFlag...
    uint8_t extra;       ///< on the air only with kManufacturerFlagExtraByte
    uint8_t unused[2];
    uint8_t length;  ///< valid bytes in data
    uint8_t data[255];
} tGBS_ManufacturerSpecificData;
static_assert(offsetof(tGBS_ManufacturerSpecificData, length) == 9, "the place of the length");
static_assert(offsetof(tGBS_ManufacturerSpecificData, data) == 10, "the place of the data");

// The callbacks. All of them run on the task that calls GBSSlave_TreatEvent, without any lock of the stack,
// so they may call the facade; the device-name callback runs on the caller of the local-name builders instead
// and must not call the facade. A result of 1 means success.

/// A central reads a characteristic whose value the application holds.
/// @param outLength receives the number of bytes, at most 251
/// @param outData   room for 255 bytes
/// @return anything but 1 answers the central with ATT error 0x8C
typedef uint16_t (*tGBS_GATTReadCallback)(uint16_t characteristic, uint8_t* outLength, uint8_t* outData);
/// A central writes a characteristic. @p data is valid during the call only.
/// @return anything but 1 answers a write request with ATT error 1
typedef uint16_t (*tGBS_GATTWriteCallback)(uint16_t characteristic, uint8_t length, uint8_t* data);
/// The passkey, 0 to 999999, is to be shown to the user.
typedef void (*tGBS_SMDisplayPasskeyCallback)(uint32_t passkey);
/// The user is to compare the passkey, 0 to 999999. The result is not used: the answer goes back through
/// GBSSlave_ConfirmPasskey.
typedef uint16_t (*tGBS_SMConfirmPasskeyCallback)(uint32_t passkey);
/// Gives the device's name, not NUL-terminated; null for none.
/// @param outLength receives its length in bytes, at most 64
typedef uint8_t* (*tGBS_DeviceNameCallback)(uint8_t* outLength);
// Identifiers of events: the packet's header read as a little-endian 32-bit word and masked with 0xFFFF00F8.
static const uint32_t kGbsEventBoot = 0x000100A0;
static const uint32_t kGbsEventConnectionOpened = 0x000800A0;
static const uint32_t kGbsEventConnectionClosed = 0x010800A0;
/// Every event of the chip, after the stack has handled it.
/// @param eventId for example kGbsEventBoot
/// @param packet  valid during the call only; without payload when the event was lost and is made up for
typedef void (*tGBS_EventCallback)(uint32_t eventId, gecko_cmd_packet* packet);
