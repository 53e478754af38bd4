// What the requests of the bus, which name states only, cannot reach.
#include "BriscaStateManager.h"
#include "StateHandlerI.h"
#include "Testing.h"

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
}  // namespace
