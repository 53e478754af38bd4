// The dialogue with the console; the whole entry is tested with the real executable.
#include "Fakes.h"
#include "FirmwareState.h"
#include "StdoutCapture.h"

namespace {
using testing::ElementsAreArray;

std::string step(const std::string& text)
{
    return "<NOTIC> [BriscaService.states.FirmwareState] " + text;
}

TEST(FirmwareEntry, LogsItsStepsAndEndsAsTheyDeserve)
{
    struct Row
    {
        const char* name;
        const char* attempts;
        BriscaState end;
        std::vector<std::string> lines;  // after the first transition line
        Calls calls;
    };
    const std::vector<std::string> noPrompt = {
        step("EFR32 restarted"), step("Prompt detected: false"),
        "<ERROR> [BriscaService.states.FirmwareState] Error during launching of the firmware.",
        "<NOTIC> [BriscaService.StateManager] Brisca service switch from FIRMWARE state to ERROR state"};
    for (const Row& row : {Row{"carriage return not taken", "c", ERROR, noPrompt, {"pulse", "open", "close"}},
                           Row{"no prompt", "n", ERROR, noPrompt, {"pulse", "open", "close"}},
                           Row{"start command refused: stays, in silence, with the port open",
                               "P",
                               FIRMWARE,
                               {step("EFR32 restarted"), step("Prompt detected: true")},
                               {"pulse", "open", "start firmware"}}}) {
        SCOPED_TRACE(row.name);
        Calls calls;
        FakeResetLine resetLine(calls);
        FakeBootloader console(calls);
        BriscaStateManager manager;
        FirmwareState state(manager, resetLine, console);
        manager.registerStateHandler(FIRMWARE, state);
        console.script(row.attempts);
        const testsupport::StdoutCapture log;
        manager.switchState(FIRMWARE);
        EXPECT_EQ(manager.getCurrentState(), row.end);
        auto lines = log.logLines();
        lines.erase(lines.begin());
        EXPECT_THAT(lines, ElementsAreArray(row.lines));
        EXPECT_THAT(calls, ElementsAreArray(row.calls));
    }
}
}  // namespace
