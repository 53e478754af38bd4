// What the tests with the real executable cannot reach.
#include "CoapProcess.h"
#include "DisabledState.h"
#include "ErrorState.h"
#include "Fakes.h"
#include "FirmwareState.h"

namespace {
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
        const StdoutCapture log;
        manager.switchState(FIRMWARE);
        EXPECT_EQ(manager.getCurrentState(), end);
        auto lines = log.logLines();
        lines.erase(lines.begin());
        EXPECT_THAT(lines, ElementsAreArray(expectedLines));
        EXPECT_THAT(calls, ElementsAreArray(expectedCalls));
    }
}

// Not reached over the bus, whose restart request goes through the bootloader state.
TEST(SmallStates, AreLeftForBootloaderByARestart)
{
    Calls calls;
    FakeResetLine resetLine(calls);
    BriscaStateManager manager;
    DisabledState(manager, resetLine).restart();
    EXPECT_EQ(manager.getCurrentState(), BOOTLOADER);
    manager.switchState(ERROR);
    ErrorState(manager).restart();
    EXPECT_EQ(manager.getCurrentState(), BOOTLOADER);
    EXPECT_TRUE(calls.empty());
}

TEST(JoinPath, PutsExactlyOneSlashBetween)
{
    for (const char* const dir : {"/evse/app/bin", "/evse/app/bin/"}) {
        for (const char* const name : {"chp", "/chp"})
            EXPECT_EQ(joinPath(dir, name), "/evse/app/bin/chp") << dir << " and " << name;
    }
}
}  // namespace
