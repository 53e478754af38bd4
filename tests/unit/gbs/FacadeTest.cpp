#include "GBSSlave.h"
#include "GOS.h"
#include "Harness.h"
#include "NCP_Manager.h"
#include "StdoutCapture.h"

#include <array>

using namespace gbstest;

namespace {
constexpr auto kAdv = GBS_AD_USAGE_ADVERTISING;
constexpr auto kBad = static_cast<tGBS_ADTypeUsage>(2);
constexpr std::array<std::uint8_t, 8> kBytes = {1, 2, 3, 4, 5, 6, 7, 8};

std::array<std::uint8_t, 256> output;
tGBS_Attribute_Data attribute;
std::uint16_t handle;
std::int16_t power;

class Facade : public testing::Test
{
protected:
    Facade() { NCPManager_ADTypeResetData(kAdv); }

    FakeChip m_chip;
};
}  // namespace

TEST_F(Facade, SendsUnderTheApiLock)
{
    const struct
    {
        Call call;
        const char* sent;
    } cases[] = {
        {GBSSlave_HelloNCP, "01 00:"},
        {call(GBSSlave_GetAddress, output.data()), "01 03:"},
        {call(GBSSlave_MakeDiscoverable, 4, 0x0102),
         "03 0E: 00 A0 00 00 00 40 01 00 00 02 01 00 | 03 0F: 00 07 | 03 14: 00 04 02"},
        {GBSSlave_EndDiscoverable, "03 15: 00"},
        {GBSSlave_TerminateLink, "08 04: 01"},
        {call(GBSSlave_SetConnParams, 1, 2, 3, 4), "03 22: 01 00 02 00 03 00 04 00 00 00 FF FF"},
        {call(GBSSlave_SetTxPowerDbm, 80, &power), "01 0C: 01 | 01 0A: 50 00 | 01 0C: 00"},
        {call(GBSSlave_GATTNotification, 7, 26, 1, kBytes.data()), "0A 05: 01 1A 00 01 01"},
        {call(GBSSlave_GetAttributeValue, 1, 2, &attribute), "0A 00: 01 00 02 00"},
        {call(GBSSlave_GetAttributeType, 1, &attribute), "0A 01: 01 00"},
        {call(GBSSlave_FindAttribute, 1, 2, kBytes.data(), &handle), "0A 06: 01 00 02 01 02"},
        {call(GBSSlave_WriteAttributeValue, 1, 2, 1, kBytes.data()), "0A 02: 01 00 02 00 01 01"},
        {call(GBSSlave_SetIOCap, 0), "0F 01: 01 00"},
        {call(GBSSlave_SetIOCap, 2), "0F 01: 01 02"},
        {call(GBSSlave_SetIOCap, 3), "0F 01: 00 03"},
        {call(GBSSlave_SetIOCap, 4), "0F 01: 01 04"},
        {call(GBSSlave_SetFlagsAndIOCap, 4, 3), "0F 01: 04 03"},
        {call(GBSSlave_SetPasskey, 1), "0F 10: 01 00 00 00"},
        {call(GBSSlave_EnterPasskey, 1), "0F 08: 01 01 00 00 00"},
        {call(GBSSlave_ConfirmPasskey, 1), "0F 09: 01 01"},
        {GBSSlave_IncreaseSecurityRequest, "0F 04: 01"},
        {call(GBSSlave_SetBondMode, GBS_NOT_BONDABLE), "0F 00: 00"},
        {call(GBSSlave_EraseSingleBond, 3), "0F 06: 03"},
        {GBSSlave_EraseAllBonds, "0F 07:"},
        {call(GBSSlave_UpdateAdvertisingData, kAdv), "03 0C: 00 00 00"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.sent);
        EXPECT_EQ(row.call(), 1u);
        EXPECT_EQ(m_chip.takeCommands(), row.sent);
        EXPECT_FALSE(semaphoreTaken(GBS_API_SEMAPHORE_ID));
    }
    EXPECT_TRUE(m_chip.allUnderApiLock());
}

TEST_F(Facade, WaitsForEventsUnderTheApiLock)
{
    const struct
    {
        const char* sent;
        Call call;
        std::string event;
    } cases[] = {
        {"01 01: 00", GBSSlave_Enable, event("01 00", "00 00 00 00 00 00 00 00 00 00 00 00 00 00")},
        {"08 01: 01", call(GBSSlave_ReadRssi, reinterpret_cast<std::int8_t*>(output.data())),
         event("08 03", "01 00 00")},
        {"0F 0B:",
         [] {
             std::array<_tGBS_BondInfo, kBondTableEntries> bonds;
             return GBSSlave_GetAllBonds(bonds.data(), output.data());
         },
         event("0F 06", "")},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.sent);
        m_chip.answerWith([&row](const std::string& command) { return accept(command) + row.event; });
        auto done = onTask([&row] { return std::to_string(row.call()); });
        EXPECT_EQ(pumpUntilDone(done), "1");
        EXPECT_EQ(m_chip.takeCommands(), row.sent);
    }
    EXPECT_TRUE(m_chip.allUnderApiLock());
}

TEST_F(Facade, TakesTheApiLockOnceForWhatItDoesNotSend)
{
    tGBS_ManufacturerSpecificData record = {};
    const std::array<std::uint32_t, 4> uuid128 = {};
    const std::array<std::uint16_t, 1> uuid16 = {};
    const struct
    {
        const char* name;
        std::function<void()> call;
        int locks = 1;
    } cases[] = {
        {"disable", GBSSlave_Disable},
        {"state", GBSSlave_GetState},
        {"link status", GBSSlave_GetLinkStatus},
        {"stack version", [] { GBSSlave_GetNcpSdkVersion(output.data()); }},
        {"bootloader version", [] { GBSSlave_GetNcpSblVersion(output.data()); }},
        {"event callback", [] { GBSSlave_SetEventCallback(nullptr); }},
        {"read callback", [] { GBSSlave_SetGATTReadCallback(nullptr); }},
        {"write callback", [] { GBSSlave_SetGATTWriteCallback(nullptr); }},
        {"display callback", [] { GBSSlave_SetSMDisplayPasskeyCallback(nullptr); }},
        {"confirm callback", [] { GBSSlave_SetSMConfirmPasskeyCallback(nullptr); }},
        {"name callback", [] { GBSSlave_SetGiveDeviceNameCallback(nullptr); }},
        {"reset", [] { GBSSlave_ADTypeResetData(kAdv); }},
        {"flags", [] { GBSSlave_ADTypeFlags(kAdv, 5); }},
        {"16-bit UUIDs", [&] { GBSSlave_ADTypeServiceUUID16bit(kAdv, 1, uuid16.data(), 1); }},
        {"128-bit UUIDs", [&] { GBSSlave_ADTypeServiceUUID128bit(kAdv, 1, uuid128.data(), 1); }},
        {"complete name", [] { GBSSlave_ADTypeCompleteLocalName(kAdv); }},
        {"shortened name", [] { GBSSlave_ADTypeShortenedLocalName(kAdv); }},
        {"power level", [] { GBSSlave_ADTypeTxPowerLevel(kAdv, -127); }},
        {"public address", [] { GBSSlave_ADTypePublicAddress(kAdv, kBytes.data()); }},
        {"device address", [] { GBSSlave_ADTypeLeDeviceAddress(kAdv, kBytes.data(), 0); }},
        {"manufacturer data", [&] { GBSSlave_AdTypeManufacturerSpecificData(kAdv, &record); }},
        {"generic data", [] { GBSSlave_AdTypeGenericData(kAdv, 1, 1, kBytes.data()); }},
        {"no-mapping flag", [] { GBSSlave_SetNoMappingFlag(0); }, 0},
        {"internal event", [] { GBSSlave_TreatInternalEvent(1); }, 0},
        {"event", GBSSlave_TreatEvent, 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        const int before = semaphoreRequests(GBS_API_SEMAPHORE_ID);
        row.call();
        EXPECT_EQ(semaphoreRequests(GBS_API_SEMAPHORE_ID), before + row.locks);
        EXPECT_FALSE(semaphoreTaken(GBS_API_SEMAPHORE_ID));
    }
    EXPECT_EQ(m_chip.takeCommands(), "");
}

TEST_F(Facade, RefusesArgumentsOutOfRange)
{
    enum class Errno { set, unset };
    enum class Lock { taken, untaken };
    const struct
    {
        const char* name;
        Call call;
        Errno error = Errno::set;
        Lock lock = Lock::untaken;
    } cases[] = {
        {"reset of usage 2", call(GBSSlave_ADTypeResetData, kBad)},
        {"flags of usage 2", call(GBSSlave_ADTypeFlags, kBad, 5)},
        {"16-bit UUIDs of usage 2", call(GBSSlave_ADTypeServiceUUID16bit, kBad, 1, nullptr, 0)},
        {"128-bit UUIDs of usage 2", call(GBSSlave_ADTypeServiceUUID128bit, kBad, 1, nullptr, 0)},
        {"complete name of usage 2", call(GBSSlave_ADTypeCompleteLocalName, kBad)},
        {"shortened name of usage 2", call(GBSSlave_ADTypeShortenedLocalName, kBad)},
        {"power level of usage 2", call(GBSSlave_ADTypeTxPowerLevel, kBad, 0)},
        {"power level -128", call(GBSSlave_ADTypeTxPowerLevel, kAdv, -128)},
        {"connection interval of usage 2", call(GBSSlave_ADTypeConnectionInterval, kBad, 6, 6)},
        {"interval from 5", call(GBSSlave_ADTypeConnectionInterval, kAdv, 5, 10)},
        {"interval to 3201", call(GBSSlave_ADTypeConnectionInterval, kAdv, 6, 3201)},
        {"interval from 100 to 99", call(GBSSlave_ADTypeConnectionInterval, kAdv, 100, 99)},
        {"public address of usage 2", call(GBSSlave_ADTypePublicAddress, kBad, kBytes.data())},
        {"no public address", call(GBSSlave_ADTypePublicAddress, kAdv, nullptr)},
        {"advertising interval of usage 2", call(GBSSlave_ADTypeAdvInterval, kBad, 32)},
        {"advertising interval 31", call(GBSSlave_ADTypeAdvInterval, kAdv, 31)},
        {"advertising interval 16385", call(GBSSlave_ADTypeAdvInterval, kAdv, 16385)},
        {"device address of usage 2", call(GBSSlave_ADTypeLeDeviceAddress, kBad, kBytes.data(), 0)},
        {"no device address", call(GBSSlave_ADTypeLeDeviceAddress, kAdv, nullptr, 0)},
        {"manufacturer data of usage 2",
         [] {
             tGBS_ManufacturerSpecificData record = {};
             return GBSSlave_AdTypeManufacturerSpecificData(kBad, &record);
         }},
        {"no manufacturer data", call(GBSSlave_AdTypeManufacturerSpecificData, kAdv, nullptr)},
        {"generic data of usage 2", call(GBSSlave_AdTypeGenericData, kBad, 1, 1, kBytes.data())},
        {"no generic data", call(GBSSlave_AdTypeGenericData, kAdv, 1, 1, nullptr)},
        {"RSSI to nowhere", call(GBSSlave_ReadRssi, nullptr), Errno::set, Lock::taken},
        {"power to nowhere", call(GBSSlave_SetTxPowerDbm, 0, nullptr), Errno::set, Lock::taken},
        {"capability 5", call(GBSSlave_SetIOCap, 5), Errno::unset},
    };
    const LogLevelScope gos("[KORA][GOS]", LogLevel::Trace);
    testsupport::StdoutCapture log;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        log.clear();
        const int before = semaphoreRequests(GBS_API_SEMAPHORE_ID);
        EXPECT_EQ(row.call(), 0u);
        EXPECT_EQ(log.count("Stub : GOS_SetErrno 16"), row.error == Errno::set ? 1 : 0);
        EXPECT_EQ(semaphoreRequests(GBS_API_SEMAPHORE_ID), before + (row.lock == Lock::taken ? 1 : 0));
    }
    EXPECT_EQ(m_chip.takeCommands(), "");
}

TEST_F(Facade, AcceptsTheEdgesOfItsRanges)
{
    EXPECT_EQ(GBSSlave_ADTypeConnectionInterval(kAdv, 6, 3200), 1u);
    EXPECT_EQ(GBSSlave_ADTypeConnectionInterval(kAdv, 3200, 3200), 1u);
    EXPECT_EQ(GBSSlave_ADTypeAdvInterval(kAdv, 32), 1u);
    EXPECT_EQ(GBSSlave_ADTypeAdvInterval(kAdv, 16384), 1u);
}

TEST_F(Facade, DoesNotAdvertiseWithoutItsChannels)
{
    m_chip.answerWith([](const std::string& command) {
        return idOf(command) == "03 14" ? accept(command) : response(idOf(command), "81 01");
    });
    EXPECT_EQ(GBSSlave_MakeDiscoverable(4, 0), 0u);
    EXPECT_EQ(m_chip.takeCommands(), "03 0E: 00 A0 00 00 00 40 01 00 00 00 00 00 | 03 0F: 00 07")
        << "the result of the timing is ignored, that of the channels is not";
}

TEST_F(Facade, LinkStatusIsOneWhileAPhoneIsConnected)
{
    m_chip.send(event("08 00", "") + event("08 01", ""));
    GBSSlave_TreatEvent();
    EXPECT_EQ(GBSSlave_GetState(), GBS_LINK_CONNECTED);
    EXPECT_EQ(GBSSlave_GetLinkStatus(), 1u);
    GBSSlave_TreatEvent();
    EXPECT_EQ(GBSSlave_GetState(), GBS_LINK_READY);
    EXPECT_EQ(GBSSlave_GetLinkStatus(), 0u);
    GBSSlave_Disable();
    EXPECT_EQ(GBSSlave_GetState(), GBS_LINK_DISABLED);
}

TEST_F(Facade, ApplicationVersionIsAskedUnderTheApiLock)
{
    m_chip.answerWith(
        [](const std::string&) { return response("FF 00", "00 00 08 00 00 01 00 02 00 03 00"); });
    EXPECT_EQ(GBSSlave_GetNcpAppVersion(output.data()), 1u);
    EXPECT_TRUE(m_chip.allUnderApiLock());
}
