#include "BriscaStateManager.h"
#include "StateHandlerI.h"
#include "Testing.h"

namespace {
class RecordingState : public StateHandlerI
{
public:
    explicit RecordingState(BriscaStateManager& manager) : m_manager(manager) {}
    void onEnter() override { calls.push_back("entered as " + to_string(m_manager.getCurrentState())); }
    void onExit() override { calls.push_back("left as " + to_string(m_manager.getCurrentState())); }

    std::vector<std::string> calls;

private:
    BriscaStateManager& m_manager;
};

class StateManager : public testing::Test
{
protected:
    StateManager() { manager.registerStateHandler(FIRMWARE, firmware); }
    static std::string transition(const std::string& from, const std::string& to)
    {
        return "<NOTIC> [BriscaService.StateManager] Brisca service switch from " + from + " state to " + to +
               " state";
    }

    StdoutCapture log;
    BriscaStateManager manager;
    RecordingState firmware{manager};
};

TEST_F(StateManager, LeavesTheOldStateBeforeItEntersTheNewOneAlsoWhenItIsTheSame)
{
    EXPECT_EQ(manager.getCurrentState(), DEFAULT);
    manager.switchState(FIRMWARE);
    manager.switchState(FIRMWARE);
    manager.switchState(DISABLED);  // without a handler
    EXPECT_EQ(manager.getCurrentState(), DISABLED);
    EXPECT_THAT(firmware.calls, ElementsAre("entered as FIRMWARE", "left as FIRMWARE", "entered as FIRMWARE",
                                            "left as FIRMWARE"));
    EXPECT_THAT(log.logLines(),
                ElementsAre(transition("DEFAULT", "FIRMWARE"), transition("FIRMWARE", "FIRMWARE"),
                            transition("FIRMWARE", "DISABLED")));
}

TEST_F(StateManager, ValuesThatAreNoStateAreLoggedAndChangeNothing)
{
    struct Row
    {
        int value;
        const char* logged;
    };
    manager.switchState(FIRMWARE);
    for (const Row& row :
         {Row{0, "DEFAULT"}, Row{5, "Undefined:5"}, Row{9, "Undefined:9"}, Row{-1, "Undefined:4294967295"}}) {
        const auto target = static_cast<BriscaState>(row.value);
        firmware.calls.clear();
        log.clear();
        manager.registerStateHandler(target, firmware);
        manager.switchState(target);
        EXPECT_EQ(manager.getCurrentState(), FIRMWARE);
        EXPECT_THAT(firmware.calls, IsEmpty());
        EXPECT_THAT(log.logLines(), ElementsAre(transition("FIRMWARE", row.logged)));
    }
}
}  // namespace
