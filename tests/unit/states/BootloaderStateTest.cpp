#include "BluetoothManager.h"
#include "BootloaderState.h"
#include "Fakes.h"
#include "facade/LogFacade.h"

#include <sys/stat.h>

namespace {
struct Station
{
    Station()
    {
        LogFacade::setLevel("BriscaService.states", LogLevel::Debug);
        manager.registerStateHandler(BOOTLOADER, state);
    }

    Calls calls;
    FakeResetLine resetLine{calls};
    FakeBootloader console{calls};
    BriscaStateManager manager;
    BootloaderState state{manager, resetLine, console};
    StdoutCapture log;
};
class Bootloader : public testing::Test, protected Station
{
};

TEST(BootloaderEntry, EndsAsItsAttemptsDeserve)
{
    for (const auto& [name, attempts, end, opens, pulses, lastLine] :
         Rows<const char*, BriscaState, int, int, const char*>{
             {"prompt at the first attempt", "P", BOOTLOADER, 1, 1, "Success at retry number 0"},
             {"prompt at the third attempt", "nnP", BOOTLOADER, 3, 3, "Success at retry number 2"},
             {"a prompt at the fourth attempt is too late", "nnnP", ERROR, 4, 4, "to ERROR state"},
             {"no prompt at all", "n", ERROR, 4, 4, "to ERROR state"},
             {"carriage return not taken once", "cP", BOOTLOADER, 2, 2, "Success at retry number 1"},
             {"port never opens", "x", ERROR, 4, 0, "to ERROR state"},
             {"port opens at the third attempt", "xxP", BOOTLOADER, 3, 1, "Success at retry number 2"},
             {"port opens at the fourth attempt", "xxxP", ERROR, 4, 1, "to ERROR state"},
             {"port is lost after an attempt without prompt", "nx", ERROR, 4, 1, "to ERROR state"},
         }) {
        SCOPED_TRACE(name);
        Station station;
        station.console.script(attempts);
        station.manager.switchState(BOOTLOADER);
        const Calls& calls = station.calls;
        EXPECT_EQ(station.manager.getCurrentState(), end);
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "open"), opens);
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "pulse"), pulses);
        // The port stays open for the requests of this state, and for nobody else.
        EXPECT_EQ(calls.back(), end == BOOTLOADER ? "pulse" : "close");
        EXPECT_THAT(station.log.logLines().back(), HasSubstr(lastLine));
    }
}

TEST_F(Bootloader, KeepsAnyNameAndTellsOfOneThatWillNotBeOnTheAir)
{
    manager.switchState(BOOTLOADER);
    const QString twoBytes = QString::fromUtf8("\xC3\xA9");
    for (const auto& [name, given, kept, warnings] :
         Rows<QString, QString, int>{{"the longest", QString(29, 'n'), QString(29, 'n'), 0},
                                     {"one byte too long", twoBytes.repeated(15), twoBytes.repeated(15), 1},
                                     {"none", QString(), QString(), 1},
                                     {"cut in front of a character", 'n' + twoBytes.repeated(50'000),
                                      'n' + twoBytes.repeated(123), 1}}) {
        SCOPED_TRACE(name);
        log.clear();
        state.setBleName(given);
        EXPECT_EQ(BluetoothManager::instance().getBleName(), kept);
        EXPECT_EQ(log.count("<WARN > [BriscaService.states.BootloaderState] The BLE name"), warnings);
    }
}

TEST_F(Bootloader, UploadsOnlyFromARegularFileThatCanBeRead)
{
    const TempDir directory;
    ASSERT_EQ(::mkfifo(directory.file("fifo").c_str(), 0600), 0);
    const QString image = QString::fromStdString(directory.write("image.gbl", "firmware"));
    manager.switchState(BOOTLOADER);
    calls.clear();
    EXPECT_TRUE(state.startFwUpdate(image));
    EXPECT_THAT(calls, ElementsAre("update from " + image.toStdString() + ", open"));
    EXPECT_EQ(log.count("<ERROR> [BriscaService.states.BootloaderState] Firmware update failed: the chip's"),
              1);
    const std::string head = "<ERROR> [BriscaService.states.BootloaderState] ";
    for (const auto& [refused, reason] : std::vector<std::pair<std::string, const char*>>{
             {directory.file("missing.gbl"), "No such file or directory"},
             {"", "No such file or directory"},
             {std::string(1'000'000, '/') + 'x', "File name too long"},
             {directory.path(), "It is no regular file."},
             {directory.file("fifo"), "It is no regular file."}}) {
        log.clear();
        EXPECT_FALSE(state.startFwUpdate(QString::fromStdString(refused)));
        EXPECT_THAT(log.logLines(),
                    ElementsAre(StartsWith(head + "The file can't be used (" + refused.substr(0, 800)),
                                head + reason));
    }
    EXPECT_EQ(calls.size(), 1U);
}
}  // namespace
