// The table of the co-processor's commands, and those of its system, advertising and connection.
#include "Commands.h"

#include <algorithm>
#include <array>

namespace efr32sim {
namespace {
constexpr std::size_t kAdvertisingPayload = 31;
constexpr std::uint8_t kAllChannels = 7;
constexpr std::uint16_t kClosedByHost = 0x0216;
constexpr int kLowestPower = -260;  // what the radio reaches, in 0.1 dBm
constexpr int kHighestPower = 190;
}  // namespace

const Coprocessor::Command* Coprocessor::find(CommandId id)
{
    using C = Coprocessor;
    static constexpr std::array kCommands{
        Command{{0x00, 0x00}, "dfu_reset", "1", &C::dfuReset},
        Command{{0x01, 0x00}, "system_hello", "", &C::systemHello},
        Command{{0x01, 0x01}, "system_reset", "1", &C::systemReset},
        Command{{0x01, 0x03}, "system_get_bt_address", "", &C::systemGetAddress},
        Command{{0x01, 0x0A}, "system_set_tx_power", "2", &C::systemSetTxPower},
        Command{{0x01, 0x0C}, "system_halt", "1", &C::systemHalt},
        Command{{0x03, 0x03}, "le_gap_end_procedure", "", &C::gapEndProcedure},
        Command{{0x03, 0x0C}, "le_gap_bt5_set_adv_data", "11a", &C::gapSetAdvertisingData},
        Command{{0x03, 0x0E}, "le_gap_set_advertise_timing", "14421", &C::gapSetAdvertisingTiming},
        Command{{0x03, 0x0F}, "le_gap_set_advertise_channel_map", "11", &C::gapSetChannelMap},
        Command{{0x03, 0x14}, "le_gap_start_advertising", "111", &C::gapStartAdvertising},
        Command{{0x03, 0x15}, "le_gap_stop_advertising", "1", &C::gapStopAdvertising},
        Command{{0x03, 0x22}, "le_gap_set_conn_timing_parameters", "222222", &C::gapSetConnectionTiming},
        Command{{0x08, 0x01}, "le_connection_get_rssi", "1", &C::connectionGetRssi},
        Command{{0x08, 0x04}, "le_connection_close", "1", &C::connectionClose},
        Command{{0x09, 0x05}, "gatt_set_characteristic_notification", "121", &C::gattSetNotification},
        Command{{0x0A, 0x00}, "gatt_server_read_attribute_value", "22", &C::serverReadValue},
        Command{{0x0A, 0x01}, "gatt_server_read_attribute_type", "2", &C::serverReadType},
        Command{{0x0A, 0x02}, "gatt_server_write_attribute_value", "22a", &C::serverWriteValue},
        Command{{0x0A, 0x03}, "gatt_server_send_user_read_response", "121a", &C::serverReadResponse},
        Command{{0x0A, 0x04}, "gatt_server_send_user_write_response", "121", &C::serverWriteResponse},
        Command{{0x0A, 0x05}, "gatt_server_send_characteristic_notification", "12a", &C::serverNotify},
        Command{{0x0A, 0x06}, "gatt_server_find_attribute", "2a", &C::serverFindAttribute},
        Command{{0x0E, 0x00}, "test_dtm_tx", "1111", &C::testTransmit},
        Command{{0x0E, 0x01}, "test_dtm_rx", "11", &C::testReceive},
        Command{{0x0E, 0x02}, "test_dtm_end", "", &C::testEnd},
        Command{{0x0F, 0x00}, "sm_set_bondable_mode", "1", &C::securityBondable},
        Command{{0x0F, 0x01}, "sm_configure", "11", &C::securityConfigure},
        Command{{0x0F, 0x02}, "sm_store_bonding_configuration", "11", &C::securityStoreConfiguration},
        Command{{0x0F, 0x04}, "sm_increase_security", "1", &C::securityIncrease},
        Command{{0x0F, 0x06}, "sm_delete_bonding", "1", &C::securityDeleteBonding},
        Command{{0x0F, 0x07}, "sm_delete_bondings", "", &C::securityDeleteBondings},
        Command{{0x0F, 0x08}, "sm_enter_passkey", "14", &C::securityEnterPasskey},
        Command{{0x0F, 0x09}, "sm_passkey_confirm", "11", &C::securityConfirmPasskey},
        Command{{0x0F, 0x0B}, "sm_list_all_bondings", "", &C::securityListBondings},
        Command{{0x0F, 0x0E}, "sm_bonding_confirm", "11", &C::securityConfirmBonding},
        Command{{0x0F, 0x10}, "sm_set_passkey", "4", &C::securitySetPasskey},
        Command{{0xFF, 0x00}, "user_message_to_target", "a", &C::userMessage},
    };
    const auto* found = std::find_if(kCommands.begin(), kCommands.end(),
                                     [id](const Command& command) { return command.id == id; });
    return found == kCommands.end() ? nullptr : found;
}

// --- System -----------------------------------------------------------------------------------------

Coprocessor::Answer Coprocessor::dfuReset(Reader& in)
{
    if (in.u8() == 0)
        m_board.startFirmware();
    else
        m_board.startBootloader();
    return std::nullopt;
}

Coprocessor::Answer Coprocessor::systemReset(Reader& in)
{
    return dfuReset(in);
}

Coprocessor::Answer Coprocessor::systemHello(Reader&)
{
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::systemGetAddress(Reader&)
{
    return Bytes(m_state.air.address.begin(), m_state.air.address.end());
}

Coprocessor::Answer Coprocessor::systemSetTxPower(Reader& in)
{
    const int wanted = static_cast<std::int16_t>(in.u16());
    return Writer().u16(static_cast<std::uint16_t>(std::clamp(wanted, kLowestPower, kHighestPower))).take();
}

Coprocessor::Answer Coprocessor::systemHalt(Reader&)
{
    return result(CommandResult::Success);
}

// --- Advertising ------------------------------------------------------------------------------------

Coprocessor::Answer Coprocessor::gapEndProcedure(Reader&)
{
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::gapSetAdvertisingData(Reader& in)
{
    const std::uint8_t handle = in.u8();
    const std::uint8_t usage = in.u8();
    const ByteSpan data = in.array();
    if (handle != 0 || usage > 1 || data.size() > kAdvertisingPayload)
        return result(CommandResult::InvalidParameter);
    (usage == 0 ? m_state.air.advertisingData : m_state.air.scanResponse).assign(data.begin(), data.end());
    m_board.report(EventKind::AdvertisingData,
                   {{"scan_response", usage}, {"data", Bytes(data.begin(), data.end())}});
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::gapSetAdvertisingTiming(Reader& in)
{
    const std::uint8_t handle = in.u8();
    const std::uint32_t minimum = in.u32();
    const std::uint32_t maximum = in.u32();
    if (handle != 0 || minimum < 0x20 || maximum < minimum)
        return result(CommandResult::InvalidParameter);
    m_state.air.intervalMin = minimum;
    m_state.air.intervalMax = maximum;
    m_state.air.duration = in.u16();
    m_state.air.maxEvents = in.u8();
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::gapSetChannelMap(Reader& in)
{
    const std::uint8_t handle = in.u8();
    const std::uint8_t map = in.u8();
    if (handle != 0 || map == 0 || map > kAllChannels)
        return result(CommandResult::InvalidParameter);
    m_state.air.channelMap = map;
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::gapStartAdvertising(Reader& in)
{
    constexpr Milliseconds kDurationUnit{10};
    AirState& air = m_state.air;
    const std::uint8_t handle = in.u8();
    const std::uint8_t discover = in.u8();
    const std::uint8_t connect = in.u8();
    if (handle != 0 || discover > 4 || connect > 4)
        return result(CommandResult::InvalidParameter);
    if (connect != 0 && m_state.link.connected)  // there is room for one connection
        return result(CommandResult::WrongState);
    air.discoverMode = discover;
    air.connectMode = connect;
    air.advertising = true;
    air.connectable = connect == 1 || connect == 2;
    m_board.report(EventKind::Advertising,
                   {{"on", 1}, {"discover", discover}, {"connect", connect}, {"duration", air.duration}});
    const unsigned run = ++m_advertisingRun;
    if (air.duration > 0) {
        m_board.after(kDurationUnit * air.duration, [this, run] {
            if (!m_state.air.advertising || run != m_advertisingRun)
                return;
            stopAdvertising("duration");
            sendEvent({0x03, 0x01}, {0});
        });
    }
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::gapStopAdvertising(Reader& in)
{
    if (in.u8() != 0)
        return result(CommandResult::InvalidParameter);
    stopAdvertising("host");
    return result(CommandResult::Success);
}

// --- Connection -------------------------------------------------------------------------------------

Coprocessor::Answer Coprocessor::gapSetConnectionTiming(Reader& in)
{
    // Units of 1.25 ms, and the supervision timeout of 10 ms (Bluetooth Core, Vol 4 Part E, 7.8.12).
    const std::uint16_t minimum = in.u16();
    const std::uint16_t maximum = in.u16();
    const std::uint16_t latency = in.u16();
    const std::uint16_t timeout = in.u16();
    const bool good = minimum >= 6 && maximum >= minimum && maximum <= 3200 && latency <= 499 &&
                      timeout >= 10 && timeout <= 3200;
    return result(good, CommandResult::InvalidParameter);
}

Coprocessor::Answer Coprocessor::connectionGetRssi(Reader& in)
{
    if (!isLink(in.u8()))
        return result(CommandResult::InvalidConnection);
    sendRssi();
    return result(CommandResult::Success);
}

Coprocessor::Answer Coprocessor::connectionClose(Reader& in)
{
    if (!isLink(in.u8()))
        return result(CommandResult::InvalidConnection);
    disconnect(kClosedByHost);
    return result(CommandResult::Success);
}
}  // namespace efr32sim
