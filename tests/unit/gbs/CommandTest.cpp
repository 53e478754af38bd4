#include "Harness.h"

using namespace gbstest;

namespace {
enum Through { facade, manager };  ///< the facade where it has the command: under the API lock
enum class Answers { withResult, withoutResult };

constexpr std::array<std::uint8_t, 3> kBytes = {0xA1, 0xB2, 0xC3};

struct CommandCase
{
    Through through;
    const char* name;
    std::function<std::string()> call;  ///< gives the result and, after a success, the outputs
    const char* sent;
    const char* answer;  ///< payload of the chip's response
    std::string outcome;
    std::string event = {};   ///< what the call waits for
    const char* main = sent;  ///< the command that gets the answer, where there are several
    Answers answers = Answers::withResult;
};

std::string outcome(std::uint32_t result, const std::string& outputs = "")
{
    return result == 1 && !outputs.empty() ? "1 " + outputs : std::to_string(result);
}

template <class Number>
std::string text(Number number)
{
    return std::to_string(number);
}
template <>
std::string text(tGBS_Attribute_Data data)
{
    return toHex({reinterpret_cast<const char*>(data.value), data.length});
}

/// The call of a command whose last parameter is its output.
template <class Output, class... Parameters, class... Arguments>
std::function<std::string()> giving(std::uint32_t (*function)(Parameters...), Arguments... arguments)
{
    return [=] {
        Output out = {};
        const std::uint32_t result = function(arguments..., &out);
        return outcome(result, text(out));
    };
}

std::string withBytes(std::uint32_t (*function)(std::uint8_t*), std::size_t count)
{
    std::uint8_t out[6] = {};
    const std::uint32_t result = function(out);
    return outcome(result, toHex({reinterpret_cast<const char*>(out), count}));
}

std::string sendUserMessage()
{
    std::uint8_t length = 0;
    std::array<std::uint8_t, 255> reply = {};
    const std::uint32_t result = NCPManager_SendUserMessage(3, kBytes.data(), &length, reply.data());
    return outcome(result, toHex({reinterpret_cast<const char*>(reply.data()), length}));
}

std::string getAllBonds()
{
    std::array<_tGBS_BondInfo, kBondTableEntries> bonds;
    std::uint8_t count = 0;
    const std::uint32_t result = GBSSlave_GetAllBonds(bonds.data(), &count);
    return outcome(result,
                   toHex({reinterpret_cast<const char*>(bonds.data()), count * sizeof(_tGBS_BondInfo)}));
}

/// The call of a command that has no outputs.
template <class... Arguments>
std::function<std::string()> plain(std::uint32_t (*function)(Arguments...),
                                   std::type_identity_t<Arguments>... arguments)
{
    return [run = call(function, arguments...)] { return outcome(run()); };
}
const auto readValue = giving<tGBS_Attribute_Data>(GBSSlave_GetAttributeValue, 0x0102, 0x0304);
const auto findAttribute = giving<std::uint16_t>(GBSSlave_FindAttribute, 0x0102, 2, kBytes.data());
const std::string kDtmDone = event("0E 00", "00 00 2A 01");

/// The table's bytes of the bonds of bondEvents.
std::string bondBytes(int count)
{
    std::string bytes;
    for (int i = 1; i <= count; ++i)
        bytes += std::string(8, static_cast<char>(i));
    return toHex(bytes);
}

std::string bondEvents(int count)
{
    std::string events;
    for (int i = 1; i <= count; ++i)
        events += event("0F 05", toHex(std::string(8, static_cast<char>(i))));
    return events + event("0F 06", "");
}

// clang-format off
const std::vector<CommandCase> kCommands = {
    {facade, "hello", plain(GBSSlave_HelloNCP), "01 00:", "00 00", "1"},
    {facade, "the address has no result code", [] { return withBytes(GBSSlave_GetAddress, 6); },
     "01 03:", "01 02 03 04 05 06", "1 01 02 03 04 05 06", {}, "01 03:", Answers::withoutResult},
    {facade, "transmit power halts and resumes the radio", giving<std::int16_t>(GBSSlave_SetTxPowerDbm, -200),
     "01 0C: 01 | 01 0A: 38 FF | 01 0C: 00", "9C FF", "1 -100", {}, "01 0A: 38 FF", Answers::withoutResult},
    {facade, "make discoverable sets intervals and channels, too", plain(GBSSlave_MakeDiscoverable, 4, 0x0102),
     "03 0E: 00 A0 00 00 00 40 01 00 00 02 01 00 | 03 0F: 00 07 | 03 14: 00 04 02", "00 00", "1", {}, "03 14: 00 04 02"},
    {manager, "advertise timing", plain(NCPManager_SetAdvTiming, 0x01020304, 0x05060708, 0x090A),
     "03 0E: 00 04 03 02 01 08 07 06 05 0A 09 00", "00 00", "1"},
    {manager, "advertise channel map", plain(NCPManager_SetAdvChannelMap, 7), "03 0F: 00 07", "00 00", "1"},
    {facade, "connection parameters", plain(GBSSlave_SetConnParams, 0x0102, 0x0304, 0x0506, 0x0708),
     "03 22: 02 01 04 03 06 05 08 07 00 00 FF FF", "00 00", "1"},
    {facade, "stop advertising", plain(GBSSlave_EndDiscoverable), "03 15: 00", "00 00", "1"},
    {manager, "end procedure", plain(NCPManager_EndProc), "03 03:", "00 00", "1"},
    {manager, "advertising data", plain(NCPManager_SetAdvData, GBS_AD_USAGE_SCAN_RESPONSE, 3, kBytes.data()),
     "03 0C: 00 01 03 A1 B2 C3", "00 00", "1"},
    {facade, "the payload of an update", plain(GBSSlave_UpdateAdvertisingData, GBS_AD_USAGE_SCAN_RESPONSE),
     "03 0C: 00 01 00", "00 00", "1"},
    {facade, "terminate the link", plain(GBSSlave_TerminateLink), "08 04: 01", "00 00", "1"},
    {manager, "disconnect", plain(NCPManager_Disconnect, 3), "08 04: 03", "00 00", "1"},
    {facade, "RSSI comes with its event", giving<std::int8_t>(GBSSlave_ReadRssi),
     "08 01: 01", "00 00", "1 -65", event("08 03", "01 00 BF")},
    {manager, "characteristic notification", plain(NCPManager_EnableNotification, 3, 0x0102, 2),
     "09 05: 03 02 01 02", "00 00", "1"},
    {facade, "attribute value", readValue, "0A 00: 02 01 04 03", "00 00 02 AA BB", "1 AA BB"},
    {facade, "attribute value whose count passes the packet", readValue, "0A 00: 02 01 04 03",
     "00 00 FF AA BB CC", "1 AA BB CC"},
    {facade, "attribute type", giving<tGBS_Attribute_Data>(GBSSlave_GetAttributeType, 0x0102), "0A 01: 02 01", "00 00 02 00 28", "1 00 28"},
    {facade, "write attribute value", plain(GBSSlave_WriteAttributeValue, 0x0102, 0x0304, 3, kBytes.data()),
     "0A 02: 02 01 04 03 03 A1 B2 C3", "00 00", "1"},
    {facade, "find attribute", findAttribute, "0A 06: 02 01 02 A1 B2", "00 00 2C 01", "1 300"},
    {facade, "find attribute with a response cut short", findAttribute, "0A 06: 02 01 02 A1 B2", "00 00 2C", "1 44"},
    {facade, "bondable mode", plain(GBSSlave_SetBondMode, GBS_BONDABLE), "0F 00: 01", "00 00", "1"},
    {facade, "security configuration", plain(GBSSlave_SetFlagsAndIOCap, 4, 3), "0F 01: 04 03", "00 00", "1"},
    {facade, "capability 2", plain(GBSSlave_SetIOCap, 2), "0F 01: 01 02", "00 00", "1"},
    {facade, "capability 3, none", plain(GBSSlave_SetIOCap, 3), "0F 01: 00 03", "00 00", "1"},
    {facade, "capability 4", plain(GBSSlave_SetIOCap, 4), "0F 01: 01 04", "00 00", "1"},
    {manager, "bonding store", plain(NCPManager_ConfigureStoreBond, 8, 2), "0F 02: 08 02", "00 00", "1"},
    {facade, "increase security", plain(GBSSlave_IncreaseSecurityRequest), "0F 04: 01", "00 00", "1"},
    {facade, "delete a bonding", plain(GBSSlave_EraseSingleBond, 5), "0F 06: 05", "00 00", "1"},
    {facade, "delete all bondings", plain(GBSSlave_EraseAllBonds), "0F 07:", "00 00", "1"},
    {facade, "enter passkey", plain(GBSSlave_EnterPasskey, 123456), "0F 08: 01 40 E2 01 00", "00 00", "1"},
    {facade, "confirm passkey", plain(GBSSlave_ConfirmPasskey, 1), "0F 09: 01 01", "00 00", "1"},
    {facade, "a passkey confirmation other than 1 refuses", plain(GBSSlave_ConfirmPasskey, 2), "0F 09: 01 00", "00 00", "1"},
    {manager, "list bondings", plain(NCPManager_ListAllBondings), "0F 0B:", "00 00", "1"},
    {manager, "a bonding confirmation is sent as it is", plain(NCPManager_ConfirmBonding, 2), "0F 0E: 01 02", "00 00", "1"},
    {facade, "set passkey", plain(GBSSlave_SetPasskey, -1), "0F 10: FF FF FF FF", "00 00", "1"},
    {manager, "direct test transmission", plain(NCPManager_DTMTestTx, 1, 37, 39, 2), "0E 00: 01 25 27 02", "00 00", "1", kDtmDone},
    {manager, "direct test reception", plain(NCPManager_DTMTestRx, 39, 2), "0E 01: 27 02", "00 00", "1", kDtmDone},
    {manager, "end of a direct test", giving<std::uint16_t>(NCPManager_EndDTMTest), "0E 02:", "00 00", "1 298", kDtmDone},
    {manager, "user message", sendUserMessage, "FF 00: 03 A1 B2 C3", "00 00 02 11 22", "1 11 22"},
    {manager, "user message whose reply's count passes the packet", sendUserMessage, "FF 00: 03 A1 B2 C3", "00 00 FF 11", "1 11"},
    {facade, "all bonds", getAllBonds, "0F 0B:", "00 00", "1 07 01 02 03 04 05 06 01 08 06 05 04 03 02 01 00",
     event("0F 05", "07 01 02 03 04 05 06 01") + event("0F 05", "08 06 05 04 03 02 01 00") + event("0F 06", "")},
    {facade, "as many bonds as the table holds", getAllBonds, "0F 0B:", "00 00", "1 " + bondBytes(14), bondEvents(16)},
    {facade, "application version", [] { return withBytes(GBSSlave_GetNcpAppVersion, 3); },
     "FF 00: 01 00", "00 00 08 F0 F1 0A F3 0B F5 0C F7", "1 0A 0B 0C"},
    {manager, "user transmit power", plain(NCPManager_SetTXPower, 9), "FF 00: 02 02 09", "00 00 00", "1"},
    {manager, "read user transmit power", giving<std::uint8_t>(NCPManager_GetTXPower),
     "FF 00: 01 03", "00 00 03 00 00 09", "1 9"},
    {manager, "power mode", plain(NCPManager_SetPowerMode, 1), "FF 00: 02 04 01", "00 00 00", "1"},
    {manager, "read power mode", giving<tGBS_TxPowerMode>(NCPManager_GetPowerMode),
     "FF 00: 01 05", "00 00 03 00 00 01", "1 1"},
    {manager, "channel", plain(NCPManager_SetChannel, 39), "FF 00: 02 06 27", "00 00 00", "1"},
    {manager, "read channel", giving<std::uint8_t>(NCPManager_GetChannel), "FF 00: 01 07", "00 00 03 00 00 27", "1 39"},
    {manager, "frequency tuning", plain(NCPManager_SetFreqTune, 0x01020304), "FF 00: 05 08 04 03 02 01", "00 00 02 08 00", "1"},
    {manager, "frequency tuning that the application refuses", plain(NCPManager_SetFreqTune, 1),
     "FF 00: 05 08 01 00 00 00", "00 00 02 08 01", "0"},
    {manager, "read frequency tuning", giving<std::uint32_t>(NCPManager_GetFreqTune),
     "FF 00: 01 09", "00 00 06 00 00 04 03 02 01", "1 16909060"},
    {manager, "save frequency tuning", plain(NCPManager_SaveFreqTune, 0x01020304), "FF 00: 05 0A 04 03 02 01", "00 00 00", "1"},
    {manager, "read saved frequency tuning", giving<std::uint32_t>(NCPManager_GetSavedFreqTune),
     "FF 00: 01 0B", "00 00 06 00 00 04 03 02 FF", "1 4278321924"},
    {manager, "start a transmit stream", plain(NCPManager_StartTxStream, 1), "FF 00: 02 0C 01", "00 00 00", "1"},
    {manager, "stop the transmit stream", plain(NCPManager_StopTxStream), "FF 00: 01 0D", "00 00 00", "1"},
    {manager, "RAIL version", [] { return withBytes(NCPManager_GetRAILVersion, 3); },
     "FF 00: 01 0E", "00 00 0E 00 01 02 03 04 05 0A 0B 0C 09 0A 0B 0C 0D", "1 0A 0B 0C"},
};
// clang-format on

class Commands : public testing::Test
{
protected:
    /// Runs a row against a chip that answers its main command with these bytes and accepts the others.
    std::string run(const CommandCase& row, const std::string& answer)
    {
        m_chip.takeCommands();
        m_chip.answerWith([&row, answer](const std::string& command) {
            return command == row.main ? answer : accept(command);
        });
        auto done = onTask(row.call);
        return pumpUntilDone(done);
    }

    FakeChip m_chip;
};
}  // namespace

TEST_F(Commands, SendTheirBytesAndReadTheirOutputs)
{
    for (const CommandCase& row : kCommands) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(run(row, response(idOf(row.main), row.answer) + row.event), row.outcome);
        EXPECT_EQ(m_chip.allUnderApiLock(), row.through == facade);
        EXPECT_EQ(m_chip.takeCommands(), row.sent);
        EXPECT_FALSE(semaphoreTaken(GBS_API_SEMAPHORE_ID));
    }
}

TEST_F(Commands, FailWithoutASuccessOfTheirOwn)
{
    for (const CommandCase& row : kCommands) {
        SCOPED_TRACE(row.name);
        const std::string id = idOf(row.main);
        if (row.answers == Answers::withResult) {
            EXPECT_EQ(run(row, response(id, std::string(row.answer).replace(0, 5, "81 01"))), "0") << "error";
        }
        EXPECT_EQ(run(row, ""), "0") << "lost";
        EXPECT_EQ(run(row, response("7F" + id.substr(2), row.answer)), "0") << "of another class";
        EXPECT_EQ(run(row, response(id.substr(0, 3) + "7F", row.answer)), "0") << "of another command";
    }
}

TEST_F(Commands, AreNotSentWithArraysOrArgumentsOutOfRange)
{
    const std::array<std::uint8_t, 255> data = {};
    std::uint16_t found = 0;
    const Rows<std::uint32_t, std::uint32_t, std::size_t> cases = {
        // payload bytes on the line; 0: refused
        {"253 bytes of advertising data fit", NCPManager_SetAdvData({}, 253, data.data()), 1, 256},
        {"254 bytes of advertising data do not", NCPManager_SetAdvData({}, 254, data.data()), 0, 0},
        {"251 bytes of a value fit", NCPManager_WriteAttributeValue(1, 0, 251, data.data()), 1, 256},
        {"252 bytes of a value do not", NCPManager_WriteAttributeValue(1, 0, 252, data.data()), 0, 0},
        {"253 bytes of a type fit", NCPManager_FindAttribute(1, 253, data.data(), &found), 1, 256},
        {"254 bytes of a type do not", NCPManager_FindAttribute(1, 254, data.data(), &found), 0, 0},
        {"255 bytes of a user message fit", NCPManager_SendUserMessage(255, data.data(), {}, {}), 1, 256},
        {"bytes that are not there", NCPManager_SendUserMessage(1, nullptr, {}, {}), 0, 0},
        {"an empty user message needs none", NCPManager_SendUserMessage(0, nullptr, {}, {}), 1, 1},
        {"channel 40", NCPManager_SetChannel(40), 0, 0},
        {"power mode 2", NCPManager_SetPowerMode(2), 0, 0},
        {"stream mode 2", NCPManager_StartTxStream(2), 0, 0},
    };
    const auto commands = m_chip.commands();
    auto sent = commands.begin();
    for (const auto& [name, result, expected, length] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(result, expected);
        if (length == 0)
            continue;
        ASSERT_NE(sent, commands.end());
        EXPECT_EQ(sent++->size(), std::string("FF 00:").size() + 3 * length);
    }
    EXPECT_EQ(sent, commands.end());
}

TEST_F(Commands, WithAReplyOfTheWrongLengthFail)
{
    for (const CommandCase& row : kCommands) {
        const std::string_view answer = row.answer;
        if (idOf(row.main) != "FF 00" || answer.size() < 12 ||
            !std::string_view(row.name).find("user message"))
            continue;
        SCOPED_TRACE(row.name);
        const std::string reply(answer.substr(9));
        const int length = std::stoi(std::string(answer.substr(6, 2)), nullptr, 16);
        const auto withLength = [&](int count, const std::string& bytes) {
            return response("FF 00",
                            "00 00 " + toHex(std::string(1, static_cast<char>(count))) + " " + bytes);
        };
        EXPECT_EQ(run(row, withLength(length + 1, reply + " 00")), "0");
        EXPECT_EQ(run(row, withLength(length - 1, reply.substr(0, reply.size() - 3))), "0");
        EXPECT_EQ(run(row, withLength(length, reply.substr(0, reply.size() - 3))), "0") << "cut short";
        std::string longest = toHex(std::string(252, '\x11'));
        EXPECT_EQ(run(row, withLength(255, longest)), "0") << "a reply that fills the packet";
    }
}

TEST_F(Commands, MoveTheLinkStateWheneverTheChipAnswers)
{
    const auto answerResult = [this](const char* result) {
        m_chip.answerWith([=](const std::string& command) { return response(idOf(command), result); });
    };
    EXPECT_EQ(GBSSlave_Disable(), 1u);
    EXPECT_EQ(NCPManager_GetState(), GBS_LINK_DISABLED);
    m_chip.answerWith([](const std::string&) { return ""; });
    EXPECT_EQ(NCPManager_StartAdvertising(4, 2), 0u);
    EXPECT_EQ(NCPManager_GetState(), GBS_LINK_DISABLED) << "without a response nothing changes";
    answerResult("81 01");
    EXPECT_EQ(NCPManager_StartAdvertising(4, 2), 0u);
    EXPECT_EQ(NCPManager_GetState(), GBS_LINK_ADVERTISING);
    EXPECT_EQ(NCPManager_StopAdvertising(), 0u);
    EXPECT_EQ(NCPManager_GetState(), GBS_LINK_READY);
}

TEST_F(Commands, EnableResetsTheChipAndWaitsForItsBootEvent)
{
    NCPManager_Disable();
    m_chip.answerWith([](const std::string& command) {
        return command == "01 01: 00"
                   ? event("08 02", "") + event("01 00", "02 00 0D 00 03 00 40 01 09 07 0B 01 01 00")
                   : accept(command);
    });
    auto done = onTask([] { return outcome(GBSSlave_Enable()); });
    EXPECT_EQ(pumpUntilDone(done), "1");
    EXPECT_TRUE(m_chip.allUnderApiLock());
    EXPECT_EQ(m_chip.takeCommands(), "01 01: 00");
    EXPECT_EQ(NCPManager_GetState(), GBS_LINK_READY);
    EXPECT_EQ(withBytes(GBSSlave_GetNcpSdkVersion, 3), "1 02 0D 03");
    EXPECT_EQ(withBytes(GBSSlave_GetNcpSblVersion, 3), "1 01 0B 07");
}

TEST_F(Commands, AWaitWithoutItsEventEndsAfterFiveSeconds)
{
    LogFacade::setLevel("[KORA][GOS]", LogLevel::Trace);
    LogFacade::setLevel("[RTapi][SIGNAL]", LogLevel::Debug);
    const StdoutCapture log;
    const auto start = std::chrono::steady_clock::now();
    auto done = onTask(giving<std::int8_t>(NCPManager_ReadRssi));
    EXPECT_EQ(pumpUntilDone(done), "0");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4900));
    EXPECT_TRUE(log.contains("Stub : GOS_SetErrno 22"));
    m_chip.send(event("08 03", "01 00 BF"));
    NCPManager_EventHandler();
    EXPECT_FALSE(log.contains("SendSignal")) << "an event that comes too late wakes nobody";
}

TEST_F(Commands, AWaitEndsByItsOwnEventAndTheEventTaskDoesNotWaitForIt)
{
    GBSSlave_SetEventCallback([](std::uint32_t, gecko_cmd_packet*) { GBSSlave_SetFlagsAndIOCap(4, 3); });
    m_chip.answerWith([](const std::string& command) {
        return accept(command) + (command == "0F 0B:" ? event("08 03", "01 00 BF") : "");
    });
    auto done = onTask(getAllBonds);
    ASSERT_TRUE(waitUntil([this] {
        GBSSlave_TreatEvent();
        return m_chip.takeCommands().ends_with("0F 01: 04 03");
    }));
    (void)GBSSlave_CheckLink();
    m_chip.send(bondEvents(2));
    EXPECT_EQ(pumpUntilDone(done), "1 " + bondBytes(2));
    GBSSlave_SetEventCallback(nullptr);
}

TEST_F(Commands, ASignalThatNobodyWaitedForIsTakenBack)
{
    m_chip.answerWith([](const std::string& command) {
        return response(idOf(command), "81 01") + event("08 03", "01 00 BF");
    });
    auto done = onTask([] {
        constexpr std::uint32_t kOther = 64;
        std::string pending;
        for (int i = 0; i < 40; ++i) {  // the event is handled before the call returns in some of them
            GOS_SendSignal(kOther, GOS_GetCurrentTaskId());
            std::int8_t rssi = 0;
            EXPECT_EQ(GBSSlave_ReadRssi(&rssi), 0u);
            pending += GOS_WaitForSignal(kOther | kEventCompletedSignal, 0) == kOther ? "" : "!";
        }
        return pending;
    });
    EXPECT_EQ(pumpUntilDone(done), "");
}

TEST_F(Commands, AWaitFromAThreadThatIsNoTaskFailsAtOnce)
{
    std::int8_t rssi = 0;
    EXPECT_EQ(NCPManager_ReadRssi(&rssi), 0u);
}
