#include "Harness.h"

using namespace gbstest;

namespace {
constexpr auto kAdv = GBS_AD_USAGE_ADVERTISING;
constexpr auto kBad = static_cast<tGBS_ADTypeUsage>(2);
constexpr std::array<std::uint8_t, 8> kBytes = {1, 2, 3, 4, 5, 6, 7, 8};

std::array<std::uint8_t, 6> output;

class Facade : public testing::Test
{
protected:
    Facade() { NCPManager_ADTypeResetData(kAdv); }

    FakeChip m_chip;
};

std::atomic<int> boots{0};
std::atomic<bool> isBusy{false};
std::atomic<bool> isLetGo{false};
void keepBusy()
{
    isBusy = true;
    EXPECT_FALSE(waitUntil([] { return isLetGo.load(); }, std::chrono::milliseconds(300)))
        << "this would reach the stack's next run";
}
const std::string kBoot = event("01 00", "00 00 00 00 00 00 00 00 00 00 00 00 00 00");
}  // namespace

TEST_F(Facade, TakesTheApiLockOnceForWhatItDoesNotSend)
{
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
        {"lowest interval", [] { EXPECT_EQ(GBSSlave_ADTypeConnectionInterval(kAdv, 6, 3200), 1u); }},
        {"highest interval", [] { EXPECT_EQ(GBSSlave_ADTypeConnectionInterval(kAdv, 3200, 3200), 1u); }},
        {"lowest advertising interval", [] { EXPECT_EQ(GBSSlave_ADTypeAdvInterval(kAdv, 32), 1u); }},
        {"highest advertising interval", [] { EXPECT_EQ(GBSSlave_ADTypeAdvInterval(kAdv, 16384), 1u); }},
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
    LogFacade::setLevel("[KORA][GOS]", LogLevel::Trace);
    StdoutCapture log;
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

TEST_F(Facade, DoesNotAdvertiseWithoutItsChannels)
{
    m_chip.answerWith([](const std::string& command) {
        return idOf(command) == "03 14" ? accept(command) : response(idOf(command), "81 01");
    });
    EXPECT_EQ(GBSSlave_MakeDiscoverable(4, 0), 0u);
    EXPECT_EQ(m_chip.takeCommands(), "03 0E: 00 A0 00 00 00 40 01 00 00 00 00 00 | 03 0F: 00 07")
        << "the result of the timing is ignored, that of the channels is not";
}

TEST_F(Facade, HandlesNoEventAfterTheLineWasLetGoUntilResumed)
{
    m_chip.send(kBoot);
    EXPECT_EQ(gecko_wait_message(), nullptr);
    EXPECT_TRUE(gecko_event_queued(kGbsEventBoot));
    GBSSlave_LetGoLine();
    EXPECT_FALSE(gecko_event_queued(kGbsEventBoot)) << "of the chip that is being reset";
    EXPECT_FALSE(GBSSlave_IsLineHeld());
    EXPECT_EQ(GBSSlave_HelloNCP(), 0u);
    {
        const StdoutCapture log;
        EXPECT_EQ(GBSSlave_Enable(), 0u);
        EXPECT_FALSE(log.contains("[RTapi.TASKS] Failed to find current task")) << "it would wait for 5 s";
    }
    EXPECT_EQ(m_chip.takeCommands(), "");
    const Pty line;
    ASSERT_EQ(GBSSlave_Init(line.slavePath().c_str()), 1u);
    EXPECT_TRUE(GBSSlave_IsLineHeld());
    FakeChip chip;  // in the place of the terminal
    boots = 0;
    GBSSlave_SetEventCallback([](std::uint32_t, gecko_cmd_packet*) { ++boots; });
    chip.send(kBoot);
    GBSSlave_TreatEvent();
    EXPECT_EQ(boots, 0);
    EXPECT_EQ(GBSSlave_HelloNCP(), 1u) << "commands work before events are resumed";
    GBSSlave_ResumeEvents();
    GBSSlave_TreatEvent();
    EXPECT_EQ(boots, 1) << "the boot event has been kept";
    EXPECT_EQ(NCPManager_StartAdvertising(4, 2), 1u);
    ASSERT_EQ(GBSSlave_Init(line.slavePath().c_str()), 1u);
    EXPECT_EQ(GBSSlave_GetState(), GBS_LINK_DISABLED) << "of the stack's next run";
    GBSSlave_SetEventCallback(nullptr);
    GBSSlave_LetGoLine();
}

TEST_F(Facade, LetsTheLineGoOnlyAfterWhatIsInProgress)
{
    for (const bool event : {true, false}) {
        SCOPED_TRACE(event ? "event" : "command");
        FakeChip chip;
        chip.answerWith([](const std::string& command) {
            keepBusy();
            return accept(command);
        });
        chip.send(kBoot);
        GBSSlave_SetEventCallback(event ? +[](std::uint32_t, gecko_cmd_packet*) { keepBusy(); } : nullptr);
        isBusy = isLetGo = false;
        std::thread thread([event] { event ? GBSSlave_TreatEvent() : GBSSlave_HelloNCP(); });
        EXPECT_TRUE(waitUntil([] { return isBusy.load(); }));
        GBSSlave_LetGoLine();
        isLetGo = true;
        thread.join();
    }
}
