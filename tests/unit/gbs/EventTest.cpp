#include "Harness.h"

using namespace gbstest;

namespace {
/// What the application's callbacks were given, in order.
Lines journal;
std::uint16_t callbackResult = 1;

std::uint16_t onRead(std::uint16_t characteristic, std::uint8_t* length, std::uint8_t* data)
{
    journal.push_back("read " + std::to_string(characteristic));
    *length = 2;
    data[0] = 0xAA;
    data[1] = 0xBB;
    return callbackResult;
}

std::uint16_t onWrite(std::uint16_t characteristic, std::uint8_t length, std::uint8_t* data)
{
    journal.push_back("write " + std::to_string(characteristic) + ": " +
                      toHex({reinterpret_cast<const char*>(data), length}));
    return callbackResult;
}

void onDisplay(std::uint32_t passkey)
{
    journal.push_back("display " + std::to_string(passkey));
}

std::uint16_t onConfirm(std::uint32_t passkey)
{
    journal.push_back("confirm " + std::to_string(passkey));
    return 0;
}

void onEvent(std::uint32_t id, gecko_cmd_packet* packet)
{
    char text[16];
    std::snprintf(text, sizeof text, "event %08X", id);
    journal.push_back(text);
    EXPECT_EQ(gecko_event_id(*packet), id);
}

std::string linkState()
{
    return std::to_string(GBSSlave_GetState()) + (GBSSlave_GetLinkStatus() == 1 ? " linked" : "");
}

std::string versions()
{
    std::uint8_t bytes[6];
    EXPECT_EQ(NCPManager_GetNcpSdkVersion(bytes), 1u);
    EXPECT_EQ(NCPManager_GetNcpSblVersion(bytes + 3), 1u);
    return toHex({reinterpret_cast<const char*>(bytes), sizeof bytes});
}

struct EventCase
{
    const char* name;
    const char* id;
    const char* payload;
    Lines log = {};        ///< "<level> text" of this event, above TRACE
    Lines callbacks = {};  ///< before the event callback
    const char* answer = "";
    std::string (*state)() = [] { return std::string(); };
    const char* expectedState = "";
    std::uint16_t callbackResult = 1;
};

// clang-format off
const std::vector<EventCase> kEventCases = {
    {"a boot stores both versions", "01 00", "82 01 8D 00 83 00 40 01 09 07 0B 01 05 00",
     {"<DEBUG> Event: NCP boot up. version:386.141.131, build=320, bootloader=0X010B0709, hw=5"}, {}, "",
     versions, "82 8D 83 01 0B 07"},
    {"a boot too short for its versions changes nothing", "01 00", "09 09 09 09 09 09 09 09 09 09 09",
     {"<WARN > Event: EventId=0X000100A0 has 11 bytes, needs 12. Ignored."}, {}, "",
     versions, "82 8D 83 01 0B 07"},
    {"an opened connection", "08 00", "", {"<NOTIC> Event: Connect opened."}, {}, "", linkState, "4 linked"},
    {"a closed connection", "08 01", "16 02 01", {"<NOTIC> Event: Connect closed."}, {}, "", linkState, "1"},
    {"connection parameters", "08 02", "01 18 00 02 00 C8 00 01 FB 00"},
    {"connection parameters cut short", "08 02", "01 18 00 02"},
    {"RSSI", "08 03", "01 00 BF"},
    {"RSSI without its value", "08 03", "01 00",
     {"<WARN > Event: EventId=0X030800A0 has 2 bytes, needs 3. Ignored."}},
    {"PHY", "08 04", "01 02"},
    {"MTU", "09 00", "01 F7 00"},
    {"an attribute value", "0A 00", "01 1A 00 12 00 01 02 AA BB"},
    {"an attribute value whose count passes the packet", "0A 00", "01 1A 00 12 00 00 FF AA"},
    {"a read is answered with the callback's value", "0A 01", "01 1A 00 0C 05 00", {}, {"read 26"}, "0A 03: 01 1A 00 00 02 AA BB"},
    {"a read that the callback refuses", "0A 01", "01 1A 00 0A 00 00", {}, {"read 26"}, "0A 03: 01 1A 00 8C 00", [] { return std::string(); }, "", 0},
    {"a write request is answered", "0A 02", "01 1A 00 13 00 00 03 01 02 03", {}, {"write 26: 01 02 03"}, "0A 04: 01 1A 00 00"},
    {"a write request that the callback refuses", "0A 02", "01 1A 00 13 00 00 00", {}, {"write 26: "}, "0A 04: 01 1A 00 01", [] { return std::string(); }, "", 2},
    {"a write command is not answered, its count clamped", "0A 02", "01 1A 00 52 00 00 FF 01", {}, {"write 26: 01"}},
    {"a write without its count reaches nobody", "0A 02", "01 1A 00 13 00 00",
     {"<WARN > Event: EventId=0X020A00A0 has 6 bytes, needs 7. Ignored."}},
    {"a characteristic status", "0A 03", "01 1A 00 01 01 00"},
    {"a finished direct test", "0E 00", "01 00 2A 01"},
    {"a passkey to display", "0F 00", "01 0C 00 00 00", {}, {"display 12"}},
    {"a passkey request", "0F 01", "01"},
    {"a passkey to confirm", "0F 02", "01 40 E2 01 00", {}, {"confirm 123456"}},
    {"bonded", "0F 03", "01 02"},
    {"bonding failed", "0F 04", "01 05 03"},
    {"a bond", "0F 05", "07 01 02 03 04 05 06 01"},
    {"the end of the bonds", "0F 06", ""},
    {"a bonding to confirm", "0F 09", "01 07"},
    {"a user message", "FF 00", "02 11 22"},
    {"an unknown event is only passed on", "7F 7F", "01 02 03"},
};
// clang-format on

class Events : public testing::Test
{
protected:
    Events()
    {
        journal.clear();
        callbackResult = 1;
        setCallbacks(onRead, onWrite, onDisplay, onConfirm, onEvent);
    }
    ~Events() override { setCallbacks(nullptr, nullptr, nullptr, nullptr, nullptr); }

    static void setCallbacks(tGBS_GATTReadCallback read, tGBS_GATTWriteCallback write,
                             tGBS_SMDisplayPasskeyCallback display, tGBS_SMConfirmPasskeyCallback confirm,
                             tGBS_EventCallback event)
    {
        NCPManager_SetGATTReadCallback(read);
        NCPManager_SetGATTWriteCallback(write);
        NCPManager_SetSMDisplayPasskeyCallback(display);
        NCPManager_SetSMConfirmPasskeyCallback(confirm);
        NCPManager_SetEventCallback(event);
    }

    /// Lines of the event handling, without the node's name.
    static Lines ncpLines(const StdoutCapture& log)
    {
        const std::string node = "[NCP_MANAGER] ";
        Lines found;
        for (std::string line : log.logLines()) {
            if (line.compare(8, node.size(), node) == 0)
                found.push_back(line.erase(8, node.size()));
        }
        return found;
    }

    void handle(const std::string& packet)
    {
        m_chip.send(packet);
        NCPManager_EventHandler();
    }

    FakeChip m_chip;
};

std::string eventName(std::string id)
{
    return "event " + id.substr(3, 2) + id.substr(0, 2) + "00A0";
}
}  // namespace

TEST_F(Events, AreStoredLoggedAnsweredAndPassedOn)
{
    LogFacade::setLevel("NCP_MANAGER", LogLevel::Debug);
    StdoutCapture log;
    for (const EventCase& row : kEventCases) {
        SCOPED_TRACE(row.name);
        journal.clear();
        log.clear();
        callbackResult = row.callbackResult;
        handle(event(row.id, row.payload));
        EXPECT_EQ(ncpLines(log), row.log);
        EXPECT_EQ(m_chip.takeCommands(), row.answer);
        EXPECT_EQ(row.state(), row.expectedState);
        Lines expected = row.callbacks;
        expected.push_back(eventName(row.id));
        EXPECT_EQ(journal, expected);
    }
}

TEST_F(Events, OfAnyLengthDoNoHarmAlsoWithoutCallbacks)
{
    const StdoutCapture log;
    for (const bool called : {true, false}) {
        for (const EventCase& row : kEventCases) {
            SCOPED_TRACE(row.name);
            for (std::size_t length = 0; length <= 256; length = length < 20 ? length + 1 : length + 59)
                handle(event(row.id, toHex(std::string(length, '\xFF'))));
            EXPECT_EQ(gecko_event_pending(), 0);
        }
        EXPECT_EQ(m_chip.takeCommands().empty(), !called);
        setCallbacks(nullptr, nullptr, nullptr, nullptr, nullptr);
    }
}

TEST_F(Events, ThatWereLostAreToldWhenTheChipIsAskedForItsConnection)
{
    NCPManager_SetEventCallback([](std::uint32_t id, gecko_cmd_packet* packet) {
        EXPECT_FALSE(semaphoreTaken(GBS_API_SEMAPHORE_ID)) << "callbacks take it";
        onEvent(id, packet);
    });
    const std::string opened = event("08 00", "");
    const std::string closed = event("08 01", "13 02 01");
    const std::string boot = event("01 00", "00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    const auto answer = [](const char* result) { return response("08 01", result); };
    const std::string open = answer("00 00");
    const std::string none = answer("01 01");
    const std::string rssi = event("08 03", "01 00 C4");
    const Lines end = {"event 010800A0"};
    const Lines beginning = {"event 000800A0"};
    // What is believed, what the chip sends each time it is asked, the last question's result, what is told.
    for (const auto& [name, believed, answers, expected, told] :
         Rows<tGBS_LinkState, Lines, tGBS_LinkCheck, Lines>{
             {"open", GBS_LINK_CONNECTED, {open}, GBS_LINK_CHECK_AGREES, {}},
             {"ended: no such connection", GBS_LINK_CONNECTED, {none, none}, GBS_LINK_CHECK_ENDED, end},
             {"ended: not connected", GBS_LINK_CONNECTED, {none, answer("86 01")}, GBS_LINK_CHECK_ENDED, end},
             {"ended: said once", GBS_LINK_CONNECTED, {none}, GBS_LINK_CHECK_DOUBTED, {}},
             {"ended: denied between", GBS_LINK_CONNECTED, {none, open, none}, GBS_LINK_CHECK_DOUBTED, {}},
             {"ended: silence between", GBS_LINK_CONNECTED, {none, "", none}, GBS_LINK_CHECK_DOUBTED, {}},
             {"another error", GBS_LINK_CONNECTED, {answer("81 01")}, GBS_LINK_CHECK_UNKNOWN, {}},
             {"no answer", GBS_LINK_CONNECTED, {""}, GBS_LINK_CHECK_UNKNOWN, {}},
             {"its end is on the way", GBS_LINK_CONNECTED, {none, closed + none}, GBS_LINK_CHECK_UNKNOWN, {}},
             {"a boot is on the way", GBS_LINK_CONNECTED, {none, boot + none}, GBS_LINK_CHECK_UNKNOWN, {}},
             {"none", GBS_LINK_ADVERTISING, {none}, GBS_LINK_CHECK_AGREES, {}},
             {"begun: said once", GBS_LINK_ADVERTISING, {open + rssi}, GBS_LINK_CHECK_DOUBTED, {}},
             {"begun", GBS_LINK_ADVERTISING, {open + rssi, open + rssi}, GBS_LINK_CHECK_BEGUN, beginning},
             {"its beginning is on the way",
              GBS_LINK_ADVERTISING,
              {opened + open},
              GBS_LINK_CHECK_UNKNOWN,
              {}},
             {"neither advertising nor connected", GBS_LINK_READY, {open, open}, GBS_LINK_CHECK_UNKNOWN, {}},
         }) {
        SCOPED_TRACE(name);
        m_chip.answerWith(accept);
        handle(believed == GBS_LINK_CONNECTED ? opened : closed);
        if (believed == GBS_LINK_ADVERTISING)
            NCPManager_StartAdvertising(4, 2);
        m_chip.takeCommands();
        journal.clear();
        tGBS_LinkCheck check = GBS_LINK_CHECK_AGREES;
        for (const std::string& sent : answers) {
            EXPECT_EQ(journal, Lines{}) << "told too early";
            m_chip.answerWith([&](const std::string&) { return sent; });
            check = GBSSlave_CheckLink();
            EXPECT_TRUE(m_chip.allUnderApiLock());
            EXPECT_EQ(m_chip.takeCommands(), "08 01: 01");
        }
        EXPECT_EQ(check, expected);
        EXPECT_EQ(journal, told);
        EXPECT_EQ(GBSSlave_GetState(), told == end         ? GBS_LINK_READY
                                       : told == beginning ? GBS_LINK_CONNECTED
                                                           : believed);
        while (GBSSlave_TreatEvent() == 1) {
        }
    }
}
