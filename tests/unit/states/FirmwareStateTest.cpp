// The dialogue with the console; the whole entry is tested with the real executable.
#include "Fakes.h"
#include "FirmwareState.h"
#include "Rows.h"
#include "StdoutCapture.h"

namespace {
using testing::ElementsAreArray;
using testsupport::Rows;

std::string step(const std::string& text)
{
    return "<NOTIC> [BriscaService.states.FirmwareState] " + text;
}

TEST(FirmwareEntry, LogsItsStepsAndEndsAsTheyDeserve)
{
    const std::vector<std::string> noPrompt = {
        step("EFR32 restarted"), step("Prompt detected: false"),
        "<ERROR> [BriscaService.states.FirmwareState] Error during launching of the firmware.",
        "<NOTIC> [BriscaService.StateManager] Brisca service switch from FIRMWARE state to ERROR state"};
    for (const auto& [name, attempts, end, expectedLines, expectedCalls] :
         Rows<const char*, BriscaState, std::vector<std::string>, Calls>{
             {"carriage return not taken", "c", ERROR, noPrompt, {"pulse", "open", "close"}},
             {"no prompt", "n", ERROR, noPrompt, {"pulse", "open", "close"}},
             {"start command refused: stays, in silence, with the port open",
              "P",
              FIRMWARE,
              {step("EFR32 restarted"), step("Prompt detected: true")},
              {"pulse", "open", "start firmware"}}}) {
        SCOPED_TRACE(name);
        Calls calls;
        FakeResetLine resetLine(calls);
        FakeBootloader console(calls);
        BriscaStateManager manager;
        FirmwareState state(manager, resetLine, console);
        manager.registerStateHandler(FIRMWARE, state);
        console.script(attempts);
        const testsupport::StdoutCapture log;
        manager.switchState(FIRMWARE);
        EXPECT_EQ(manager.getCurrentState(), end);
        auto lines = log.logLines();
        lines.erase(lines.begin());
        EXPECT_THAT(lines, ElementsAreArray(expectedLines));
        EXPECT_THAT(calls, ElementsAreArray(expectedCalls));
    }
}
}  // namespace
