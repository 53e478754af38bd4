// The advertising-data builder. An AD structure on the air (Bluetooth Core Supplement, CSS):
//
//   offset size
//   0      1     number of bytes that follow
//   1      1     AD type
//   2      n     data, multi-byte fields little-endian

#include "GosMutex.h"
#include "NCP_Manager.h"
#include "NCP_State.h"
#include "facade/Log.h"
#include "gecko.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>

using ncp::callbacks;

BRISCA_LOG_NODE(logNode, "NCP_MANAGER");

namespace {
constexpr int kPayloadSize = 31;
constexpr std::uint16_t kFragments = 10;
constexpr std::uint16_t kLastFragment = kFragments - 1;
constexpr int kFlagsSize = 3;               // a whole Flags structure
constexpr std::uint8_t kFragmentFlags = 5;  // LE Limited Discoverable Mode, BR/EDR Not Supported
constexpr std::uint16_t kCompanyId = BRISCA_COMPANY_ID;
constexpr std::uint8_t kLongestName = 64;
constexpr char kDefaultName[] = "EFR32_NCP";

// AD types (Bluetooth SIG assigned numbers).
constexpr std::uint8_t kAdFlags = 0x01;
constexpr std::uint8_t kAdUuid16Incomplete = 0x02;
constexpr std::uint8_t kAdUuid16Complete = 0x03;
constexpr std::uint8_t kAdUuid128Incomplete = 0x06;
constexpr std::uint8_t kAdUuid128Complete = 0x07;
constexpr std::uint8_t kAdShortenedName = 0x08;
constexpr std::uint8_t kAdCompleteName = 0x09;
constexpr std::uint8_t kAdTxPowerLevel = 0x0A;
constexpr std::uint8_t kAdConnectionInterval = 0x12;
constexpr std::uint8_t kAdPublicAddress = 0x17;
constexpr std::uint8_t kAdAdvInterval = 0x1A;
constexpr std::uint8_t kAdLeDeviceAddress = 0x1B;
constexpr std::uint8_t kAdManufacturerData = 0xFF;

/// Up to 31 bytes for the air. The writers drop what would pass the end; the room checks keep it from
/// happening.
class Payload
{
public:
    [[nodiscard]] int used() const { return m_used; }
    [[nodiscard]] const std::uint8_t* data() const { return m_bytes.data(); }

    void u8(std::uint8_t value)
    {
        if (m_used < kPayloadSize)
            m_bytes[m_used++] = value;
    }
    void u16(std::uint16_t value)
    {
        u8(static_cast<std::uint8_t>(value));
        u8(static_cast<std::uint8_t>(value >> 8));
    }
    void u32(std::uint32_t value)
    {
        u16(static_cast<std::uint16_t>(value));
        u16(static_cast<std::uint16_t>(value >> 16));
    }
    void bytes(const std::uint8_t* source, int count)
    {
        std::for_each_n(source, count, [this](std::uint8_t value) { u8(value); });
    }
    /// Length byte and type of a structure whose data the caller writes next.
    void begin(int length, std::uint8_t type)
    {
        u8(static_cast<std::uint8_t>(length));
        u8(type);
    }
    /// Counts bytes that stay zero up to this end.
    void extendTo(int end) { m_used = static_cast<std::uint8_t>(std::clamp<int>(end, m_used, kPayloadSize)); }

private:
    std::array<std::uint8_t, kPayloadSize> m_bytes = {};
    std::uint8_t m_used = 0;
};

/// Guarded by GOS semaphore 2, except the flag.
struct AdvertisingState
{
    std::array<Payload, kFragments> fragments;
    std::uint16_t current = 0;  ///< fragment that is being filled
    std::uint16_t cursor = 0;   ///< fragment that is sent next
    bool ready = false;         ///< advertising data may be sent
    Payload scanResponse;
    std::atomic<std::uint16_t> noMappingFlag{0};
};
AdvertisingState state;

constexpr GosMutex adDataMutex(GBS_AD_DATA_SEMAPHORE_ID);

// ---- Room -------------------------------------------------------------------------------------------------

/// Where the next structure of a usage goes; null for a usage that does not exist.
Payload* currentPayload(tGBS_ADTypeUsage usage)
{
    if (usage == GBS_AD_USAGE_SCAN_RESPONSE)
        return &state.scanResponse;
    if (usage == GBS_AD_USAGE_ADVERTISING && state.current <= kLastFragment)
        return &state.fragments[state.current];
    return nullptr;
}

void writeFlags(Payload& payload, std::uint8_t flags)
{
    payload.begin(2, kAdFlags);
    payload.u8(flags);
}

/// Moves on to the next fragment, which begins with its own flags, when the structure fits there.
Payload* nextFragment(int length)
{
    if (state.current >= kLastFragment)
        return nullptr;
    Payload& next = state.fragments[state.current + 1];
    if (next.used() + kFlagsSize + 1 + length > kPayloadSize)
        return nullptr;
    ++state.current;
    writeFlags(next, kFragmentFlags);
    return &next;
}

/// The payload that has room for a structure; null when none has.
/// @param length bytes behind the structure's length byte
Payload* roomFor(tGBS_ADTypeUsage usage, int length)
{
    Payload* const payload = currentPayload(usage);
    if (payload == nullptr || payload->used() + 1 + length <= kPayloadSize)
        return payload;
    return usage == GBS_AD_USAGE_ADVERTISING ? nextFragment(length) : nullptr;
}

/// The frame of every plain builder.
/// @param dataLength bytes that @p write appends behind length and type
template <class Write>
std::uint32_t build(tGBS_ADTypeUsage usage, std::uint8_t type, int dataLength, Write write)
{
    const std::lock_guard lock(adDataMutex);
    const int length = dataLength + 1;
    Payload* const payload = roomFor(usage, length);
    if (payload == nullptr)
        return 0;
    payload->begin(length, type);
    write(*payload);
    return 1;
}

// ---- Local name -------------------------------------------------------------------------------------------

/// Fills the payload to its last byte with as much of the name as fits; no other fragment is tried.
std::uint32_t buildShortenedName(tGBS_ADTypeUsage usage, const std::uint8_t* name, int length)
{
    const std::lock_guard lock(adDataMutex);
    Payload* const payload = currentPayload(usage);
    if (payload == nullptr)
        return 0;
    const int room = kPayloadSize - 2 - payload->used();
    if (length <= room) {
        payload->begin(length + 1, kAdCompleteName);
        payload->bytes(name, length);
        return 1;
    }
    if (room <= 0)
        return 0;
    payload->begin(room + 1, kAdShortenedName);
    payload->bytes(name, room);
    return 1;
}

// ---- Manufacturer-specific data ---------------------------------------------------------------------------
// A piece: length, 0xFF, company identifier, value, then with the mapping byte and flags and, if present, the
// extra byte, then of split data the number of pieces and the index of this one, then data bytes.

constexpr int kHeaderWithMapping = 7;  // type, company identifier, value, byte, flags
constexpr int kHeaderWithoutMapping = 5;
constexpr int kSplitHeader = 2;

struct Split
{
    int pieces;
    int index;
};

/// The extra byte counts even where it is not written, which leaves a zero byte at the structure's end.
int headerLength(const tGBS_ManufacturerSpecificData& data)
{
    const int header = state.noMappingFlag == 1 ? kHeaderWithoutMapping : kHeaderWithMapping;
    return header + ((data.flags & kManufacturerFlagExtraByte) != 0 ? 1 : 0);
}

void writeMapping(Payload& payload, const tGBS_ManufacturerSpecificData& data)
{
    payload.u8(data.byte);
    payload.u8(data.flags);
    if ((data.flags & kManufacturerFlagExtraByte) != 0)
        payload.u8(data.extra);
}

/// Writes one piece and takes its data bytes off the record.
void writePiece(Payload& payload, tGBS_ManufacturerSpecificData& record, int header, int count,
                const std::uint8_t* data, const Split* split)
{
    const int end = payload.used() + 1 + header + count;
    payload.begin(header + count, kAdManufacturerData);
    payload.u16(record.companyId);
    payload.u16(record.value);
    if (state.noMappingFlag == 0)
        writeMapping(payload, record);
    if (split != nullptr) {
        payload.u8(static_cast<std::uint8_t>(split->pieces));
        payload.u8(static_cast<std::uint8_t>(split->index));
    }
    payload.bytes(data, count);
    payload.extendTo(end);
    record.length = static_cast<std::uint8_t>(record.length - count);
}

/// How many pieces the data takes from the current fragment on; 0 when it does not fit.
int countPieces(int used, int header, int length)
{
    if (header + kSplitHeader + used >= 30)
        return 0;
    const int overflow = length - 30 + header + kSplitHeader + used;
    const int perFragment = 25 - header;  // behind a fragment's flags, the length byte and the split header
    const int pieces = overflow / perFragment + (overflow % perFragment != 0 ? 2 : 1);
    return pieces + state.current < kFragments + 1 ? pieces : 0;
}

/// Called with semaphore 2 held. The flags of the second fragment take it once more, so the caller blocks
/// there for ever: part of the interface, see GBSSlave_AdTypeManufacturerSpecificData.
std::uint32_t writeSplit(tGBS_ManufacturerSpecificData& record, int header)
{
    const int pieces = countPieces(state.fragments[state.current].used(), header, record.length);
    if (pieces == 0)
        return 0;
    record.flags |= kManufacturerFlagSplit;
    const std::uint8_t* data = record.data;
    for (Split split = {pieces, 0}; split.index < pieces; ++split.index) {
        Payload& payload = state.fragments[state.current];
        const bool last = split.index == pieces - 1;
        const int room = kPayloadSize - 1 - payload.used() - header - kSplitHeader;
        const int count = last ? record.length : room;
        writePiece(payload, record, header + kSplitHeader, count, data, &split);
        data += count;
        if (!last) {
            ++state.current;
            NCPManager_ADTypeFlags(GBS_AD_USAGE_ADVERTISING, kFragmentFlags);
        }
    }
    return 1;
}

// ---- Sending ----------------------------------------------------------------------------------------------

Payload takeFragment(bool restart)
{
    if (restart || state.cursor > state.current)
        state.cursor = 0;
    const Payload& fragment = state.fragments[state.cursor];
    state.cursor = state.cursor < state.current ? static_cast<std::uint16_t>(state.cursor + 1) : 0;
    return fragment;
}

/// Copies what is to be sent next; false when there is nothing to send.
bool takePayload(tGBS_ADTypeUsage usage, bool restart, Payload& out)
{
    const std::lock_guard lock(adDataMutex);
    if (usage == GBS_AD_USAGE_SCAN_RESPONSE)
        out = state.scanResponse;
    else if (usage == GBS_AD_USAGE_ADVERTISING && state.ready)
        out = takeFragment(restart);
    else
        return false;
    return true;
}
}  // namespace

// ---- Builders ---------------------------------------------------------------------------------------------

std::uint32_t NCPManager_ADTypeResetData(tGBS_ADTypeUsage usage)
{
    const std::lock_guard lock(adDataMutex);
    if (usage == GBS_AD_USAGE_SCAN_RESPONSE) {
        state.scanResponse = {};
    } else if (usage == GBS_AD_USAGE_ADVERTISING) {
        state.ready = false;
        state.cursor = 0;
        state.current = 0;
        state.fragments = {};
    } else {
        return 0;
    }
    return 1;
}

std::uint32_t NCPManager_ADTypeFlags(tGBS_ADTypeUsage usage, std::uint8_t flags)
{
    return build(usage, kAdFlags, 1, [=](Payload& payload) { payload.u8(flags); });
}

std::uint32_t NCPManager_ADTypeServiceUUID16bit(tGBS_ADTypeUsage usage, std::uint16_t complete,
                                                const std::uint16_t* uuids, std::uint8_t count)
{
    if (uuids == nullptr)
        return 0;
    return build(usage, complete == 1 ? kAdUuid16Complete : kAdUuid16Incomplete, 2 * count,
                 [=](Payload& payload) {
                     std::for_each_n(uuids, count, [&](std::uint16_t uuid) { payload.u16(uuid); });
                 });
}

std::uint32_t NCPManager_ADTypeServiceUUID128bit(tGBS_ADTypeUsage usage, std::uint16_t complete,
                                                 const std::uint32_t* uuids, std::uint8_t count)
{
    if (uuids == nullptr)
        return 0;
    return build(usage, complete == 1 ? kAdUuid128Complete : kAdUuid128Incomplete, 16 * count,
                 [=](Payload& payload) {
                     std::for_each_n(uuids, 4 * count, [&](std::uint32_t word) { payload.u32(word); });
                 });
}

std::uint32_t NCPManager_ADTypeLocalName(tGBS_ADTypeUsage usage, std::uint8_t complete)
{
    std::uint8_t length = 0;
    const std::uint8_t* const name = NCP_GetUserDeviceName(&length);
    if (complete == 0)
        return buildShortenedName(usage, name, length);
    return build(usage, kAdCompleteName, length, [=](Payload& payload) { payload.bytes(name, length); });
}

std::uint32_t NCPManager_ADTypeTxPowerLevel(tGBS_ADTypeUsage usage, std::int8_t level)
{
    return build(usage, kAdTxPowerLevel, 1,
                 [=](Payload& payload) { payload.u8(static_cast<std::uint8_t>(level)); });
}

std::uint32_t NCPManager_ADTypeConnectionInterval(tGBS_ADTypeUsage usage, std::uint16_t min,
                                                  std::uint16_t max)
{
    return build(usage, kAdConnectionInterval, 4, [=](Payload& payload) {
        payload.u16(min);
        payload.u16(max);
    });
}

std::uint32_t NCPManager_ADTypePublicAddress(tGBS_ADTypeUsage usage, const std::uint8_t* address)
{
    return build(usage, kAdPublicAddress, kBdAddressLength,
                 [=](Payload& payload) { payload.bytes(address, kBdAddressLength); });
}

std::uint32_t NCPManager_ADTypeLeDeviceAddress(tGBS_ADTypeUsage usage, const std::uint8_t* address,
                                               std::uint8_t type)
{
    // The type in front of the address, where the CSS puts it behind: part of the interface.
    return build(usage, kAdLeDeviceAddress, 1 + kBdAddressLength, [=](Payload& payload) {
        payload.u8(type);
        payload.bytes(address, kBdAddressLength);
    });
}

std::uint32_t NCPManager_ADTypeAdvInterval(tGBS_ADTypeUsage usage, std::uint16_t interval)
{
    return build(usage, kAdAdvInterval, 2, [=](Payload& payload) { payload.u16(interval); });
}

std::uint32_t NCPManager_AdTypeGenericData(tGBS_ADTypeUsage usage, std::uint8_t type, std::uint8_t length,
                                           const std::uint8_t* data)
{
    if (data == nullptr)
        return 0;
    const std::lock_guard lock(adDataMutex);
    // One byte more than is written: part of the interface.
    Payload* const payload = roomFor(usage, length + 2);
    if (payload == nullptr)
        return 0;
    payload->begin(length + 1, type);
    payload->bytes(data, length);
    return 1;
}

std::uint32_t NCPManager_AdTypeManufacturerSpecificData(tGBS_ADTypeUsage usage,
                                                        tGBS_ManufacturerSpecificData* data)
{
    if (data == nullptr)
        return 0;
    const std::lock_guard lock(adDataMutex);
    Payload* const payload = currentPayload(usage);
    if (payload == nullptr)
        return 0;
    data->companyId = kCompanyId;
    const int header = headerLength(*data);
    if (header + payload->used() + data->length < kPayloadSize) {
        data->flags = static_cast<std::uint8_t>(data->flags & ~kManufacturerFlagSplit);
        writePiece(*payload, *data, header, data->length, data->data, nullptr);
        return 1;
    }
    return usage == GBS_AD_USAGE_ADVERTISING ? writeSplit(*data, header) : 0;
}

std::uint32_t NCPManager_SetNoMappingFlag(std::uint16_t flag)
{
    state.noMappingFlag = flag;
    return 1;
}

std::uint32_t NCPManager_UpdateADTypeFragment(tGBS_ADTypeUsage usage, std::uint16_t restart)
{
    Payload payload;
    if (!takePayload(usage, restart == 1, payload))
        return 0;
    return NCPManager_SetAdvData(usage, static_cast<std::uint8_t>(payload.used()), payload.data());
}

std::uint32_t NCPManager_UpdateAdvertisingData(tGBS_ADTypeUsage usage)
{
    if (usage == GBS_AD_USAGE_ADVERTISING) {
        const std::lock_guard lock(adDataMutex);
        state.ready = true;
    }
    return NCPManager_UpdateADTypeFragment(usage, 1);
}

const std::uint8_t* NCP_GetUserDeviceName(std::uint8_t* length)
{
    const std::uint8_t* name = nullptr;
    *length = 0;
    if (const auto callback = callbacks.deviceName.load())
        name = callback(length);
    else
        BRISCA_DEBUG(logNode, "[NCP_GetUserDeviceName] GBS_DeviceNameCallback is null. Used default name");
    if (name == nullptr || *length == 0 || *length > kLongestName) {
        *length = static_cast<std::uint8_t>(StrLenMax(kDefaultName, kLongestName));
        name = reinterpret_cast<const std::uint8_t*>(kDefaultName);
    }
    return name;
}
