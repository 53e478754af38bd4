#include "BootloaderState.h"
#include "Fakes.h"
#include "StdoutCapture.h"
#include "TempDir.h"
#include "facade/LogFacade.h"

#include <sys/stat.h>

#include <algorithm>

namespace {
using testing::ElementsAre;

class Bootloader : public testing::Test
{
protected:
    Bootloader()
    {
        LogFacade::setLevel("BriscaService.states", LogLevel::Debug);
        manager.registerStateHandler(BOOTLOADER, state);
    }

    Calls calls;
    FakeResetLine resetLine{calls};
    FakeBootloader console{calls};
    BriscaStateManager manager;
    BootloaderState state{manager, resetLine, console};
    testsupport::StdoutCapture log;
};

struct Entry
{
    const char* name;
    const char* attempts;
    BriscaState end;
    int opens;
    int pulses;
    const char* lastLine;
};
void PrintTo(const Entry& row, std::ostream* out)
{
    *out << row.name;
}
class BootloaderEntry : public Bootloader, public testing::WithParamInterface<Entry>
{
};

TEST_P(BootloaderEntry, EndsAsItsAttemptsDeserve)
{
    console.script(GetParam().attempts);
    manager.switchState(BOOTLOADER);
    EXPECT_EQ(manager.getCurrentState(), GetParam().end);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "open"), GetParam().opens);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "pulse"), GetParam().pulses);
    // The port stays open for the requests of this state, and for nobody else.
    EXPECT_EQ(calls.back(), GetParam().end == BOOTLOADER ? "pulse" : "close");
    EXPECT_THAT(log.logLines().back(), testing::HasSubstr(GetParam().lastLine));
}

INSTANTIATE_TEST_SUITE_P(
    Attempts, BootloaderEntry,
    testing::Values(
        Entry{"prompt at the first attempt", "P", BOOTLOADER, 1, 1, "Success at retry number 0"},
        Entry{"prompt at the third attempt", "nnP", BOOTLOADER, 3, 3, "Success at retry number 2"},
        Entry{"a prompt at the fourth attempt is too late", "nnnP", ERROR, 4, 4, "to ERROR state"},
        Entry{"no prompt at all", "n", ERROR, 4, 4, "to ERROR state"},
        Entry{"carriage return not taken once", "cP", BOOTLOADER, 2, 2, "Success at retry number 1"},
        Entry{"port never opens", "x", ERROR, 4, 0, "to ERROR state"},
        Entry{"port opens at the third attempt", "xxP", BOOTLOADER, 3, 1, "Success at retry number 2"},
        Entry{"port opens at the fourth attempt", "xxxP", ERROR, 4, 1, "to ERROR state"},
        Entry{"port is lost after an attempt without prompt", "nx", ERROR, 4, 1, "to ERROR state"}));

TEST_F(Bootloader, LogsWhatTheConsoleSentAndEachRetry)
{
    console.script("cnP");
    manager.switchState(BOOTLOADER);
    const std::string text = log.text();
    const auto after = [&text](const char* wanted, std::size_t from) { return text.find(wanted, from); };
    std::size_t position = after("Text received:\n\n\n", 0);  // nothing was sent, so nothing came
    position = after("Retry number: 0", position);
    position = after("Text received:\nmenu\n\n", position);
    position = after("Retry number: 1", position);
    EXPECT_NE(position, std::string::npos) << text;
}

TEST_F(Bootloader, UploadsOnlyFromARegularFileThatCanBeRead)
{
    const testsupport::TempDir directory;
    ASSERT_EQ(::mkfifo(directory.file("fifo").c_str(), 0600), 0);
    const QString image = QString::fromStdString(directory.write("image.gbl", "firmware"));
    const QString missing = QString::fromStdString(directory.file("missing.gbl"));
    manager.switchState(BOOTLOADER);
    calls.clear();
    EXPECT_TRUE(state.startFwUpdate(image));
    EXPECT_THAT(calls, ElementsAre("update from " + image.toStdString()));
    for (const QString& refused :
         {missing, QString::fromStdString(directory.path()), QString(),
          QString::fromStdString(directory.file("fifo")), QStringLiteral("/dev/null")}) {
        EXPECT_FALSE(state.startFwUpdate(refused));
        EXPECT_TRUE(log.contains("<ERROR> [BriscaService.states.BootloaderState] The file can't be used (" +
                                 refused.toStdString() + ")"));
    }
    EXPECT_EQ(calls.size(), 1U);
}
}  // namespace
