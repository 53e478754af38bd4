// What the tests with the real executable cannot reach.
#include "DisabledState.h"
#include "ErrorState.h"
#include "Fakes.h"
#include "FirmwareState.h"

namespace {
struct CountingState : StateHandlerI
{
    void onEnter() override { ++calls; }
    void onExit() override { ++calls; }
    int calls = 0;
};

TEST(StateManager, ValuesThatAreNoStateAreLoggedAndChangeNothing)
{
    const StdoutCapture log;
    BriscaStateManager manager;
    CountingState firmware;
    manager.registerStateHandler(FIRMWARE, firmware);
    EXPECT_EQ(manager.getCurrentState(), DEFAULT);
    manager.switchState(FIRMWARE);
    for (const auto& [name, value] :
         Rows<int>{{"DEFAULT", 0}, {"Undefined:5", 5}, {"Undefined:9", 9}, {"Undefined:4294967295", -1}}) {
        manager.registerStateHandler(static_cast<BriscaState>(value), firmware);
        manager.switchState(static_cast<BriscaState>(value));
        EXPECT_EQ(manager.getCurrentState(), FIRMWARE);
        EXPECT_EQ(firmware.calls, 1);
        EXPECT_EQ(log.count(std::string("from FIRMWARE state to ") + name + " state"), 1);
    }
    manager.switchState(DISABLED);
    EXPECT_EQ(manager.getCurrentState(), DISABLED) << "without a handler";
}

TEST(FirmwareEntry, IsStayedInWhenTheStartCommandIsRefused)
{
    Calls calls;
    FakeResetLine resetLine(calls);
    FakeBootloader console(calls);
    BriscaStateManager manager;
    FirmwareState state(manager, resetLine, console);
    manager.registerStateHandler(FIRMWARE, state);
    const StdoutCapture log;
    manager.switchState(FIRMWARE);
    EXPECT_EQ(manager.getCurrentState(), FIRMWARE);
    EXPECT_THAT(log.logLines().back(), testing::EndsWith("Prompt detected: true")) << "nothing is told";
    EXPECT_THAT(calls, ElementsAre("pulse", "open", "start firmware")) << "the port stays open";
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
}  // namespace
