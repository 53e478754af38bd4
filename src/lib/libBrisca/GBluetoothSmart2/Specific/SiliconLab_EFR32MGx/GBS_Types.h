#pragma once

// The records, numbers and callbacks that the BLE peripheral stack shares with its users. Multi-byte fields
// of these records are in host order unless a comment says otherwise; the stack converts them for the air.

#include <cstddef>
#include <cstdint>

struct gecko_cmd_packet;

/// Which of the two payloads of 31 bytes an advertising function works on. Other values are refused.
enum tGBS_ADTypeUsage : std::uint8_t {
    GBS_AD_USAGE_ADVERTISING = 0,
    GBS_AD_USAGE_SCAN_RESPONSE = 1,
};

/// What GBSSlave_GetState returns; the numbers are on the service's bus interface too.
enum tGBS_LinkState : std::uint8_t {
    GBS_LINK_DISABLED = 0,
    GBS_LINK_READY = 1,
    GBS_LINK_ADVERTISING = 2,
    GBS_LINK_CONNECTED = 4,
};

/// What the chip says of the connection.
enum tGBS_ConnectionAnswer : std::uint8_t {
    GBS_CONNECTION_UNKNOWN = 0,  ///< no answer, or one that says nothing about it
    GBS_CONNECTION_NONE = 1,
    GBS_CONNECTION_OPEN = 2,
};

/// What came of comparing that with the link state.
enum tGBS_LinkCheck : std::uint8_t {
    GBS_LINK_CHECK_UNKNOWN = 0,  ///< nothing: ask again later
    GBS_LINK_CHECK_AGREES = 1,
    GBS_LINK_CHECK_ENDED = 2,    ///< the connection had ended; this has been told now
    GBS_LINK_CHECK_BEGUN = 3,    ///< a connection had begun; this has been told now
    GBS_LINK_CHECK_DOUBTED = 4,  ///< the first contradiction: ask again soon
};

/// Whether the chip may store bonds.
enum _tGBS_GAP_Bonding : std::uint8_t {
    GBS_NOT_BONDABLE = 0,
    GBS_BONDABLE = 1,
};

/// 0 or 1, as the chip's firmware defines them.
using tGBS_TxPowerMode = std::uint8_t;
/// 0 or 1, as the chip's firmware defines them.
using tGBS_TxStreamMode = std::uint8_t;
/// PHY of the direct test mode, passed to the chip unchanged.
using tGBS_DTMPhyType = std::uint8_t;
/// Packet pattern of the direct test mode, passed to the chip unchanged.
using tGBS_DTMPacketType = std::uint8_t;

constexpr std::uint32_t kBdAddressLength = 6;  // Bluetooth device address, least significant byte first
constexpr std::uint32_t kVersionLength = 3;    // major, minor, patch

/// One attribute value or type as the chip reports it.
struct tGBS_Attribute_Data
{
    std::uint8_t length;      ///< valid bytes in value
    std::uint8_t value[255];  ///< attribute types are little-endian, 2 or 16 bytes
};

/// One entry of the chip's bond table.
struct _tGBS_BondInfo
{
    std::uint8_t bonding;                    ///< handle, for GBSSlave_EraseSingleBond
    std::uint8_t address[kBdAddressLength];  ///< as received
    std::uint8_t addressType;
};
constexpr std::size_t kBondTableEntries = 14;
static_assert(sizeof(_tGBS_BondInfo) * kBondTableEntries == 112, "callers reserve 112 bytes for all bonds");

/// Flags byte of tGBS_ManufacturerSpecificData.
constexpr std::uint8_t kManufacturerFlagSplit = 0x80;      // several pieces; set and cleared by the builder
constexpr std::uint8_t kManufacturerFlagExtraByte = 0x40;  // the extra byte is present

/// Manufacturer-specific advertising data. The builder works on the record in place: it overwrites the
/// company identifier and the split flag and counts length down to 0, so fill it anew before every call.
struct tGBS_ManufacturerSpecificData
{
    std::uint16_t companyId;  ///< replaced by the configured company identifier; little-endian on the air
    std::uint16_t value;      ///< little-endian on the air
    std::uint8_t byte;        ///< left out, like flags and extra, when the no-mapping flag is 1
    std::uint8_t flags;       ///< kManufacturerFlag...
    std::uint8_t extra;       ///< on the air only with kManufacturerFlagExtraByte
    std::uint8_t unused[2];
    std::uint8_t length;  ///< valid bytes in data
    std::uint8_t data[255];
};
static_assert(offsetof(tGBS_ManufacturerSpecificData, length) == 9);
static_assert(offsetof(tGBS_ManufacturerSpecificData, data) == 10);

// The callbacks. All of them run on the task that calls GBSSlave_TreatEvent, without any lock of the stack,
// so they may call the facade; the device-name callback runs on the caller of the local-name builders instead
// and must not call the facade. A result of 1 means success.

/// A central reads a characteristic whose value the application holds.
/// @param outLength receives the number of bytes, at most 251
/// @param outData   room for 255 bytes
/// @return anything but 1 answers the central with ATT error 0x8C
using tGBS_GATTReadCallback = std::uint16_t (*)(std::uint16_t characteristic, std::uint8_t* outLength,
                                                std::uint8_t* outData);
/// A central writes a characteristic. @p data is valid during the call only.
/// @return anything but 1 answers a write request with ATT error 1
using tGBS_GATTWriteCallback = std::uint16_t (*)(std::uint16_t characteristic, std::uint8_t length,
                                                 std::uint8_t* data);
/// The passkey, 0 to 999999, is to be shown to the user.
using tGBS_SMDisplayPasskeyCallback = void (*)(std::uint32_t passkey);
/// The user is to compare the passkey, 0 to 999999. The result is not used: the answer goes back through
/// GBSSlave_ConfirmPasskey.
using tGBS_SMConfirmPasskeyCallback = std::uint16_t (*)(std::uint32_t passkey);
/// Gives the device's name, not NUL-terminated; null for none.
/// @param outLength receives its length in bytes, at most 64
using tGBS_DeviceNameCallback = std::uint8_t* (*)(std::uint8_t* outLength);
// Identifiers of events: the packet's header read as a little-endian 32-bit word and masked with 0xFFFF00F8.
constexpr std::uint32_t kGbsEventBoot = 0x000100A0;
constexpr std::uint32_t kGbsEventConnectionOpened = 0x000800A0;
constexpr std::uint32_t kGbsEventConnectionClosed = 0x010800A0;
/// Every event of the chip, after the stack has handled it.
/// @param eventId for example kGbsEventBoot
/// @param packet  valid during the call only; without payload when the event was lost and is made up for
using tGBS_EventCallback = void (*)(std::uint32_t eventId, gecko_cmd_packet* packet);
