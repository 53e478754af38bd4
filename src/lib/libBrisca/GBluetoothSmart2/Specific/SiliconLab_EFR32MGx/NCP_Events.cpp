// The events of the co-processor: one function and one row of kEvents for each.

#include "GOS.h"
#include "NCP_Exchange.h"
#include "NCP_State.h"
#include "facade/Log.h"
#include "facade/LogTable.h"

#include <optional>

using namespace ncp;

BRISCA_LOG_NODE(logNode, "NCP_MANAGER");

namespace {
// Bluetooth Core, Attribute Protocol (ATT).
constexpr std::uint8_t kAttWriteRequest = 0x13;  // the write that the central expects an answer to
constexpr std::uint8_t kAttSuccess = 0x00;
constexpr std::uint8_t kAttInvalidHandle = 0x01;
constexpr std::uint8_t kAttReadRefused = 0x8C;  // application error
constexpr std::uint16_t kCallbackSuccess = 1;

/// Text of a byte dump, made only when a log statement that is enabled asks for it.
class Dump
{
public:
    const char* of(std::span<const std::uint8_t> data)
    {
        return log_table2str_impl<unsigned char>(data.data(), static_cast<int>(data.size()), 0, m_text,
                                                 sizeof m_text, kLogTableHexByte);
    }

private:
    char m_text[kLogTableSize];
};

/// What the GATT events have in common. Braced initialisers read the fields in this order.
struct GattRequest
{
    std::uint8_t connection;
    std::uint16_t handle;
    std::uint8_t opcode;
    std::uint16_t offset;
};

GattRequest readGattRequest(PayloadReader& in)
{
    return {in.u8(), in.u16(), in.u8(), in.u16()};
}

// ---- System and connection --------------------------------------------------------------------------------

void onBoot(PayloadReader in)
{
    const std::uint16_t majorVersion = in.u16();
    const std::uint16_t minorVersion = in.u16();
    const std::uint16_t patch = in.u16();
    const std::uint16_t build = in.u16();
    const std::uint32_t bootloader = in.u32();
    const std::uint16_t hardware = in.u16();
    firmwareVersion = (majorVersion & 0xFFU) << 16 | (minorVersion & 0xFFU) << 8 | (patch & 0xFFU);
    bootloaderVersion = bootloader >> 8;
    noteBoot();
    BRISCA_DEBUG(logNode, "Event: NCP boot up. version:%u.%u.%u, build=%u, bootloader=0X%08X, hw=%u",
                 majorVersion, minorVersion, patch, build, bootloader, hardware);
}

void onConnectionOpened(PayloadReader)
{
    noteConnectionOpened();
    BRISCA_NOTIC(logNode, "Event: Connect opened.");
}

void onConnectionClosed(PayloadReader)
{
    noteConnectionClosed();
    BRISCA_NOTIC(logNode, "Event: Connect closed.");
}

void onConnectionParameters(PayloadReader in)
{
    in.u8();  // connection
    const unsigned interval = in.u16();
    const unsigned latency = in.u16();
    const unsigned timeout = in.u16();
    const unsigned securityMode = in.u8();
    const unsigned txSize = in.u16();
    BRISCA_TRACE(
        logNode,
        "Event: LE connection parameters. interval=%u, latency=%u, timeout=%u, security_mode=%u, txsize=%u",
        interval, latency, timeout, securityMode, txSize);
}

void onRssi(PayloadReader in)
{
    in.u16();  // connection, status
    const std::int8_t rssi = in.i8();
    lastRssi = rssi;
    BRISCA_TRACE(logNode, "Event: Receive RSSI = %d.", rssi);
}

void onPhyStatus(PayloadReader in)
{
    const unsigned connection = in.u8();
    const unsigned phy = in.u8();
    BRISCA_TRACE(logNode, "Event: Connection phy status. Connect=%u, phy=%u(1:1M,2:2M,4:125k,8:500k)",
                 connection, phy);
}

// ---- GATT -------------------------------------------------------------------------------------------------

void onMtuExchanged(PayloadReader in)
{
    const unsigned connection = in.u8();
    const unsigned mtu = in.u16();
    BRISCA_TRACE(logNode, "Event: MTU exchanged. Connect=%u, mtu=%u", connection, mtu);
}

void onAttributeValue(PayloadReader in)
{
    const GattRequest value = readGattRequest(in);
    const auto bytes = in.array();
    Dump dump;
    BRISCA_TRACE(logNode, "Event: Server attribute value. Connect=%u, attribute=%u, opcode=%u, offset=%u",
                 value.connection, value.handle, value.opcode, value.offset);
    BRISCA_TRACE(logNode, "Length %d Data : %s", static_cast<int>(bytes.size()), dump.of(bytes));
}

void answerRead(std::uint16_t characteristic, std::uint8_t error, std::span<const std::uint8_t> value)
{
    run(kGattServerSendUserReadResponse, {u8(kConnection), u16(characteristic), u8(error),
                                          array(static_cast<std::uint8_t>(value.size()), value.data())});
}

void onUserReadRequest(PayloadReader in)
{
    const GattRequest request = readGattRequest(in);
    BRISCA_TRACE(logNode, "Event: User read request. Connect=%u, char=%u, opcode=%u, offset=%u",
                 request.connection, request.handle, request.opcode, request.offset);
    const auto callback = callbacks.gattRead.load();
    if (callback == nullptr)
        return;
    std::array<std::uint8_t, 255> value = {};  // all that the callback's length can announce
    std::uint8_t length = 0;
    if (callback(request.handle, &length, value.data()) == kCallbackSuccess)
        answerRead(request.handle, kAttSuccess, std::span(value).first(length));
    else
        answerRead(request.handle, kAttReadRefused, {});
}

void onUserWriteRequest(PayloadReader in)
{
    const GattRequest request = readGattRequest(in);
    const auto value = in.array();
    const auto length = static_cast<std::uint8_t>(value.size());
    Dump dump;
    BRISCA_TRACE(logNode, "Event: User write request. Connect=%u, char=%u, opcode=%u, offset=%u",
                 request.connection, request.handle, request.opcode, request.offset);
    BRISCA_TRACE(logNode, "NCP -> GBS : Length %d", length);
    BRISCA_TRACE(logNode, "NCP -> GBS : Data %s", dump.of(value));
    const auto callback = callbacks.gattWrite.load();
    if (callback == nullptr)
        return;
    const std::uint16_t accepted = callback(request.handle, length, value.data());
    if (request.opcode == kAttWriteRequest)
        run(kGattServerSendUserWriteResponse,
            {u8(kConnection), u16(request.handle),
             u8(accepted == kCallbackSuccess ? kAttSuccess : kAttInvalidHandle)});
}

void onCharacteristicStatus(PayloadReader in)
{
    const unsigned connection = in.u8();
    const unsigned characteristic = in.u16();
    const unsigned status = in.u8();
    const unsigned configuration = in.u16();
    BRISCA_TRACE(logNode,
                 "Event: Characteristic status. Connect=%u, handle=%u, status=%u(1:config,2:confirm), "
                 "client_config=%u(0:disable,1:notification,2:indication)",
                 connection, characteristic, status, configuration);
}

// ---- Direct test mode, security ---------------------------------------------------------------------------

void onDtmCompleted(PayloadReader in)
{
    const unsigned result = in.u16();
    const std::uint16_t packets = in.u16();
    dtmPackets = packets;
    BRISCA_TRACE(logNode, "Event: DTM test completed. result=%u(0:success, 1:failure), number_of_packets=%u",
                 result, packets);
}

void onPasskeyDisplay(PayloadReader in)
{
    const unsigned connection = in.u8();
    const std::uint32_t passkey = in.u32();
    BRISCA_TRACE(logNode, "Event: Display passkey. Connect=%u, Passkey=%06u", connection, passkey);
    if (const auto callback = callbacks.displayPasskey.load())
        callback(passkey);
}

void onPasskeyRequest(PayloadReader in)
{
    const unsigned connection = in.u8();
    BRISCA_TRACE(logNode, "Event: Request passkey. Connect=%u", connection);
}

void onConfirmPasskey(PayloadReader in)
{
    const unsigned connection = in.u8();
    const std::uint32_t passkey = in.u32();
    BRISCA_TRACE(logNode, "Event: Confirm passkey. Connect=%u, Passkey=%06u", connection, passkey);
    if (const auto callback = callbacks.confirmPasskey.load())
        callback(passkey);
}

void onBonded(PayloadReader in)
{
    const unsigned connection = in.u8();
    const unsigned bonding = in.u8();
    BRISCA_TRACE(logNode, "Event: SM bonded. Connect=%u, bonding=%u", connection, bonding);
}

void onBondingFailed(PayloadReader in)
{
    const unsigned connection = in.u8();
    const unsigned reason = in.u16();
    BRISCA_TRACE(logNode, "Event: SM bonding failed. Connect=%u, reason=0x%04X", connection, reason);
}

void onListBondingEntry(PayloadReader in)
{
    _tGBS_BondInfo bond = {};
    bond.bonding = in.u8();
    in.copy(bond.address, kBdAddressLength);
    bond.addressType = in.u8();
    bonds.append(bond);
    BRISCA_TRACE(logNode,
                 "Event: List bonding entry. handle=%u, address=%02X:%02X:%02X:%02X:%02X:%02X, type=%u",
                 bond.bonding, bond.address[0], bond.address[1], bond.address[2], bond.address[3],
                 bond.address[4], bond.address[5], bond.addressType);
}

void onListAllBondingsComplete(PayloadReader)
{
    BRISCA_TRACE(logNode, "Event: List all bonding complete");
}

void onConfirmBonding(PayloadReader in)
{
    const unsigned connection = in.u8();
    const std::int8_t bonding = in.i8();  // -1: a new bond; printed as unsigned like every field here
    BRISCA_TRACE(logNode, "Event: Confirm boinding. Connect=%u, handle=%u", connection,
                 static_cast<unsigned>(bonding));
}

void onUserMessage(PayloadReader in)
{
    const auto data = in.array();
    Dump dump;
    BRISCA_TRACE(logNode, "Event: User message event.");
    BRISCA_TRACE(logNode, " Length : %d Data : %s", static_cast<int>(data.size()), dump.of(data));
}

// ---- The table --------------------------------------------------------------------------------------------

struct EventRow
{
    std::uint32_t id;
    std::uint8_t neededLength;  ///< payload bytes without which nothing is stored, answered or woken
    void (*handle)(PayloadReader);
};

constexpr EventRow kEvents[] = {
    {kGbsEventBoot, 12, onBoot},
    {kGbsEventConnectionOpened, 0, onConnectionOpened},
    {kGbsEventConnectionClosed, 0, onConnectionClosed},
    {0x020800A0, 0, onConnectionParameters},
    {kEventRssi, 3, onRssi},
    {0x040800A0, 0, onPhyStatus},
    {0x000900A0, 0, onMtuExchanged},
    {0x000A00A0, 0, onAttributeValue},
    {0x010A00A0, 3, onUserReadRequest},
    {0x020A00A0, 7, onUserWriteRequest},
    {0x030A00A0, 0, onCharacteristicStatus},
    {kEventDtmCompleted, 4, onDtmCompleted},
    {0x000F00A0, 5, onPasskeyDisplay},
    {0x010F00A0, 0, onPasskeyRequest},
    {0x020F00A0, 5, onConfirmPasskey},
    {0x030F00A0, 0, onBonded},
    {0x040F00A0, 0, onBondingFailed},
    {0x050F00A0, 8, onListBondingEntry},
    {kEventBondsListed, 0, onListAllBondingsComplete},
    {0x090F00A0, 0, onConfirmBonding},
    {0x00FF00A0, 0, onUserMessage},
};

void handle(const EventRow& row, PayloadReader payload)
{
    if (payload.size() < row.neededLength) {
        BRISCA_WARN(logNode, "Event: EventId=0X%08X has %zu bytes, needs %u. Ignored.", row.id,
                    payload.size(), row.neededLength);
        return;
    }
    row.handle(payload);
    EventWait::wake(row.id);
}

void passOn(std::uint32_t id, gecko_cmd_packet& event)
{
    if (const auto callback = callbacks.event.load())
        callback(id, &event);
    else
        BRISCA_TRACE(logNode, "Event: Unprocess EventId=0X%08X", id);
}

/// A copy, because the ring may wrap over the slot and a late response lies in the shared response buffer.
std::optional<gecko_cmd_packet> nextEvent()
{
    const LineOwner::ExchangeTurn turn;
    const gecko_cmd_packet* const event = gecko_peek_event();
    return event != nullptr ? std::optional(*event) : std::nullopt;
}

void dispatch(gecko_cmd_packet& event)
{
    const std::uint32_t id = gecko_event_id(event);
    const EventRow* const row = std::ranges::find(kEvents, id, &EventRow::id);
    if (row != std::end(kEvents))
        handle(*row, PayloadReader(event));
    passOn(id, event);
}

/// An event that the line destroyed. Nobody reads the payload that it would have had.
gecko_cmd_packet lostEvent(std::uint32_t id)
{
    gecko_cmd_packet event = {};
    gecko_put_u32(event.header.data(), id);
    return event;
}

void tellLost(std::uint32_t id, const char* what)
{
    BRISCA_NOTIC(logNode, "Event lost: %s", what);
    gecko_cmd_packet event = lostEvent(id);
    dispatch(event);
}
}  // namespace

std::uint32_t NCPManager_EventHandler()
{
    std::optional<gecko_cmd_packet> event = nextEvent();
    if (!event)
        return 0;
    dispatch(*event);
    return 1;
}

tGBS_LinkCheck NCPManager_TellConnection(tGBS_ConnectionAnswer answer)
{
    const tGBS_LinkCheck told = noteConnection(answer);
    if (told == GBS_LINK_CHECK_BEGUN)
        tellLost(kGbsEventConnectionOpened, "a phone is connected");
    else if (told == GBS_LINK_CHECK_ENDED)
        tellLost(kGbsEventConnectionClosed, "no phone is connected any more");
    return told;
}

void NCPManager_TellBoot()
{
    if (gecko_event_queued(kGbsEventBoot))
        return;
    BRISCA_NOTIC(logNode, "Event lost: the chip has booted");
    noteBoot();
    gecko_cmd_packet event = lostEvent(kGbsEventBoot);
    passOn(kGbsEventBoot, event);
}

bool NCPManager_IsConnectionPending()
{
    return gecko_event_queued(kGbsEventConnectionOpened);
}
