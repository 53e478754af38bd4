#include "BluetoothManager.h"
#include "Fakes.h"
#include "FirmwareState.h"
#include "StdoutCapture.h"

#include <algorithm>

namespace {
using testing::ElementsAre;
using testing::ElementsAreArray;

class Firmware : public testing::Test
{
protected:
    Firmware() { manager.registerStateHandler(FIRMWARE, state); }

    Calls calls;
    FakeResetLine resetLine{calls};
    FakeBootloader console{calls};
    BriscaStateManager manager;
    FirmwareState state{manager, resetLine, console};
    testsupport::StdoutCapture log;
};

constexpr const char* kFailed =
    "<ERROR> [BriscaService.states.FirmwareState] Error during launching of the firmware.";
constexpr const char* kToError =
    "<NOTIC> [BriscaService.StateManager] Brisca service switch from FIRMWARE state to ERROR state";
std::string step(const std::string& text)
{
    return "<NOTIC> [BriscaService.states.FirmwareState] " + text;
}

struct Entry
{
    const char* name;
    const char* attempts;
    bool firmwareStarts;
    BriscaState end;
    std::vector<std::string> lines;  // after the first transition line
    Calls calls;
};
void PrintTo(const Entry& row, std::ostream* out)
{
    *out << row.name;
}
class FirmwareEntry : public Firmware, public testing::WithParamInterface<Entry>
{
};

// The Bluetooth manager has no UART name here, so no entry comes further than its initialisation.
TEST_P(FirmwareEntry, LogsItsStepsAndEndsAsTheyDeserve)
{
    console.script(GetParam().attempts);
    console.firmwareStarts = GetParam().firmwareStarts;
    manager.switchState(FIRMWARE);
    EXPECT_EQ(manager.getCurrentState(), GetParam().end);
    auto lines = log.logLines();
    lines.erase(lines.begin());
    EXPECT_THAT(lines, ElementsAreArray(GetParam().lines));
    EXPECT_THAT(calls, ElementsAreArray(GetParam().calls));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, FirmwareEntry,
    testing::Values(
        Entry{"port cannot be opened",
              "x",
              true,
              ERROR,
              {step("EFR32 restarted"), kFailed, kToError},
              {"pulse", "open", "close"}},
        Entry{"carriage return not taken",
              "c",
              true,
              ERROR,
              {step("EFR32 restarted"), step("Prompt detected: false"), kFailed, kToError},
              {"pulse", "open", "close"}},
        Entry{"no prompt",
              "n",
              true,
              ERROR,
              {step("EFR32 restarted"), step("Prompt detected: false"), kFailed, kToError},
              {"pulse", "open", "close"}},
        Entry{"start command refused: stays, in silence, with the port open",
              "P",
              false,
              FIRMWARE,
              {step("EFR32 restarted"), step("Prompt detected: true")},
              {"pulse", "open", "start firmware"}},
        Entry{"BLE stack cannot be initialised",
              "P",
              true,
              ERROR,
              {step("EFR32 restarted"), step("Prompt detected: true"),
               "<ERROR> [BriscaService.comm.BluetoothManager] Set the UART name before initializing stack",
               step("BLE initialized: false"), kFailed, kToError},
              {"pulse", "open", "start firmware", "close", "close"}}));

TEST_F(Firmware, ARestartLeavesAndEntersItInFull)
{
    console.firmwareStarts = false;
    manager.switchState(FIRMWARE);
    calls.clear();
    state.restart();
    EXPECT_THAT(calls, ElementsAre("close", "pulse", "open", "start firmware"));
    EXPECT_FALSE(log.contains("coAp killed"));
}
}  // namespace
