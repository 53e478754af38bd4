// What the station says about itself, on the air of a simulated chip.

#include "EventPump.h"
#include "SimulatedStation.h"

namespace {
using efr32sim::Fault;
using efr32sim::FaultKind;

constexpr CommandId kSetAdvertisingData{0x03, 0x0C};
constexpr CommandId kSetChannelMap{0x03, 0x0F};
constexpr CommandId kGetAddress{0x01, 0x03};

class IdentityTest : public SimulatedStation
{
protected:
    /// How often the chip was asked to advertise since the cursor was made.
    static int starts(efr32sim::EventCursor& events)
    {
        int count = 0;
        while (const auto event = events.next(std::chrono::milliseconds(0)))
            if (event->kind == EventKind::Command && isCommand(kStartAdvertising)(*event))
                ++count;
        return count;
    }
};

TEST_F(IdentityTest, TheNameIsCutAt31BytesAndOnTheAirWhenItFitsTheScanResponse)
{
    const std::string cut(31, 'n');
    std::string cutInACharacter;
    while (cutInACharacter.size() < cut.size())
        cutInACharacter += cutInACharacter.size() % 2 == 0 ? '\xC3' : '\xA9';
    const QString umlaut = QString::fromUtf8("S\xC3\xA4ule \xE2\x9A\xA1");
    // What the stack is given, and what is on the air in the scan response; empty: no name there.
    for (const auto& [name, given, onAir] : std::vector<std::tuple<QString, std::string, std::string>>{
             {"", "", "EFR32_NCP"},
             {"V", "V", "V"},
             {QString(29, 'n'), std::string(29, 'n'), std::string(29, 'n')},
             {QString(31, 'n'), cut, ""},
             {QString(32, 'n'), cut, ""},
             {QString(1000, 'n'), cut, ""},
             {umlaut, umlaut.toStdString(), umlaut.toStdString()},
             {QString::fromUtf8("\xC3\xA9").repeated(32), cutInACharacter, ""},
             {QString(QChar(0)) + "name", "", "EFR32_NCP"},
         }) {
        SCOPED_TRACE(name.toStdString());
        ASSERT_TRUE(enter(name));
        ASSERT_TRUE(Phone(chip).scan());
        std::uint8_t length = 0xFF;
        const std::uint8_t* const text = Brisca::giveDeviceName(&length);
        EXPECT_EQ(std::string(text, text + length), given);
        Bytes expected;
        if (!onAir.empty()) {
            expected = {static_cast<std::uint8_t>(onAir.size() + 1), 0x09};
            expected.insert(expected.end(), onAir.begin(), onAir.end());
        }
        EXPECT_EQ(chip.air().scanResponse, expected);
    }
}

TEST_F(IdentityTest, TheAddressIsTextWithItsMostSignificantByteFirstOrUnknown)
{
    ASSERT_TRUE(init());
    // A busy machine loses a response now and then, too.
    EXPECT_TRUE(waitUntil([] { return stack().getBLEAddress() == "060504030201"; }));
    chip.inject(Fault{.kind = FaultKind::LostResponse, .count = 2, .command = kGetAddress});
    EXPECT_EQ(stack().getBLEAddress(), QString());
    EXPECT_TRUE(capture.contains("<ERROR> [Brisca] Failed to get BLE address"));
    stack().startAdvertising(0);
    ASSERT_TRUE(waitUntil([this] { return chip.air().advertisingData.size() == 17U; }));
    const Bytes data = chip.air().advertisingData;
    EXPECT_EQ(Bytes(data.begin() + 11, data.end()), Bytes(6, 0)) << "advertised as zero";
}

TEST_F(IdentityTest, RefusedAdvertisingDataIsNotAdvertised)
{
    ASSERT_TRUE(init());
    auto events = chip.follow();
    // The scan response's, too: its answer may come late and be taken for that of the advertising data.
    chip.inject(Fault{.kind = FaultKind::ErrorResponse, .count = 2, .command = kSetAdvertisingData});
    stack().startAdvertising(0);
    EXPECT_EQ(capture.count("<ERROR> [Brisca] Failed to update manufacturer specific data"), 1);
    EXPECT_EQ(starts(events), 0);
}

TEST_F(IdentityTest, AskingEndsWhenTheLineIsLetGo)
{
    ASSERT_TRUE(init());
    auto events = chip.follow();
    chip.inject(Fault{.kind = FaultKind::ErrorResponse, .count = 0, .command = kStartAdvertising});
    const auto begin = std::chrono::steady_clock::now();
    std::thread eventTask([this] {
        do {  // once more when a busy machine has delayed the answer to the advertising data
            capture.clear();
            stack().startAdvertising(0);
        } while (GBSSlave_IsLineHeld() && capture.contains("Failed to update"));
    });
    for (int asked = 0; asked < 10; ++asked)
        EXPECT_TRUE(events.waitFor(EventKind::Command, isCommand(kStartAdvertising)));
    // Three commands of 10 ms each time, and 20 ms between.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 29 * 10ms + 9 * 20ms);
    EXPECT_TRUE(EventPump::silence()) << "a pump that asks again does not hang";
    GBSSlave_LetGoLine();
    events = chip.follow();
    eventTask.join();
    EXPECT_EQ(starts(events), 0) << "the line belongs to the bootloader client";
    EXPECT_FALSE(chip.air().advertising);
}

TEST_F(IdentityTest, OneLateResponseDoesNotSpoilTheCommandsBehindIt)
{
    ASSERT_TRUE(init());
    // It arrives while the retry waits; nobody reads events meanwhile, as when the event task advertises.
    chip.inject(Fault{
        .kind = FaultKind::LateResponse, .command = kSetChannelMap, .delay = std::chrono::milliseconds(20)});
    std::thread eventTask([] {
        while (GBSSlave_IsLineHeld() && stack().getBriscaState() != 2)
            stack().startAdvertising(0);
    });
    EXPECT_TRUE(waitUntil([&] { return stack().getBriscaState() == 2; }));
    GBSSlave_LetGoLine();
    eventTask.join();
}

TEST_F(IdentityTest, ABootEventWaitsForTheStackToBeStarted)
{
    ASSERT_TRUE(enter());
    ASSERT_TRUE(Phone(chip).scan());
    GBSSlave_LetGoLine();
    ASSERT_TRUE(init());
    EXPECT_FALSE(EventPump::isStarted());
    EXPECT_EQ(stack().getBriscaState(), 0);
    auto events = chip.follow();
    chip.reboot();
    ASSERT_TRUE(events.waitFor(EventKind::BootSent));
    // The event pump looks every 10 ms.
    EXPECT_FALSE(Phone(chip).scan(std::chrono::milliseconds(300)));
    stack().startStack();
    EXPECT_TRUE(EventPump::isStarted());
    EXPECT_TRUE(Phone(chip).scan());
}
}  // namespace
