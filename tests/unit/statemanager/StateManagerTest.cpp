#include "BriscaStateManager.h"
#include "StateHandlerI.h"
#include "StdoutCapture.h"

#include <gmock/gmock.h>

#include <functional>

namespace {
using testing::ElementsAre;
using testing::IsEmpty;
using Calls = std::vector<std::string>;

class RecordingState : public StateHandlerI
{
public:
    RecordingState(std::string name, Calls& calls, BriscaStateManager& manager)
        : m_name(std::move(name)), m_calls(calls), m_manager(manager)
    {
    }
    void onEnter() override
    {
        m_calls.push_back(m_name + " entered as " + to_string(m_manager.getCurrentState()));
        if (entryAction)
            entryAction();
    }
    void onExit() override
    {
        m_calls.push_back(m_name + " left as " + to_string(m_manager.getCurrentState()));
    }

    std::function<void()> entryAction;

private:
    std::string m_name;
    Calls& m_calls;
    BriscaStateManager& m_manager;
};

class StateManager : public testing::Test
{
protected:
    StateManager()
    {
        manager.registerStateHandler(FIRMWARE, firmware);
        manager.registerStateHandler(ERROR, error);
    }
    static std::string transition(const std::string& from, const std::string& to)
    {
        return "<NOTIC> [BriscaService.StateManager] Brisca service switch from " + from + " state to " + to +
               " state";
    }

    testsupport::StdoutCapture log;
    Calls calls;
    BriscaStateManager manager;
    RecordingState firmware{"firmware", calls, manager};
    RecordingState error{"error", calls, manager};
};

TEST_F(StateManager, LeavesTheOldStateBeforeItEntersTheNewOneAlsoWhenItIsTheSame)
{
    EXPECT_EQ(manager.getCurrentState(), DEFAULT);
    manager.switchState(FIRMWARE);
    manager.switchState(FIRMWARE);
    manager.switchState(DISABLED);  // without a handler
    EXPECT_EQ(manager.getCurrentState(), DISABLED);
    EXPECT_THAT(calls, ElementsAre("firmware entered as FIRMWARE", "firmware left as FIRMWARE",
                                   "firmware entered as FIRMWARE", "firmware left as FIRMWARE"));
    EXPECT_THAT(log.logLines(),
                ElementsAre(transition("DEFAULT", "FIRMWARE"), transition("FIRMWARE", "FIRMWARE"),
                            transition("FIRMWARE", "DISABLED")));
}

TEST_F(StateManager, AnEntryMaySwitchToErrorItself)
{
    firmware.entryAction = [this] {
        manager.switchState(ERROR);
        calls.push_back("firmware entry goes on");
    };
    manager.switchState(FIRMWARE);
    EXPECT_EQ(manager.getCurrentState(), ERROR);
    EXPECT_THAT(calls, ElementsAre("firmware entered as FIRMWARE", "firmware left as FIRMWARE",
                                   "error entered as ERROR", "firmware entry goes on"));
    EXPECT_THAT(log.logLines(),
                ElementsAre(transition("DEFAULT", "FIRMWARE"), transition("FIRMWARE", "ERROR")));
}

TEST_F(StateManager, ValuesThatAreNoStateAreLoggedAndChangeNothing)
{
    struct Row
    {
        int value;
        const char* logged;
    };
    RecordingState never("never", calls, manager);
    manager.switchState(FIRMWARE);
    for (const Row& row :
         {Row{0, "DEFAULT"}, Row{5, "Undefined:5"}, Row{9, "Undefined:9"}, Row{-1, "Undefined:4294967295"}}) {
        const auto target = static_cast<BriscaState>(row.value);
        calls.clear();
        log.clear();
        manager.registerStateHandler(target, never);
        manager.switchState(target);
        EXPECT_EQ(manager.getCurrentState(), FIRMWARE);
        EXPECT_THAT(calls, IsEmpty());
        EXPECT_THAT(log.logLines(), ElementsAre(transition("FIRMWARE", row.logged)));
    }
}
}  // namespace
