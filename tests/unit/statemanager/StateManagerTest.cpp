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
        manager.registerStateHandler(BOOTLOADER, bootloader);
        manager.registerStateHandler(FIRMWARE, firmware);
        manager.registerStateHandler(ERROR, error);
    }
    /// Transition lines since the last clear(), without their fixed words.
    std::vector<std::string> transitions() const
    {
        const std::string head = "<NOTIC> [BriscaService.StateManager] Brisca service switch ";
        std::vector<std::string> result;
        for (const std::string& line : log.logLines()) {
            EXPECT_EQ(line.rfind(head, 0), 0U) << line;
            result.push_back(line.substr(head.size()));
        }
        return result;
    }

    testsupport::StdoutCapture log;
    Calls calls;
    BriscaStateManager manager;
    RecordingState bootloader{"bootloader", calls, manager};
    RecordingState firmware{"firmware", calls, manager};
    RecordingState error{"error", calls, manager};
};

TEST_F(StateManager, LeavesTheOldStateBeforeItEntersTheNewOne)
{
    EXPECT_EQ(manager.getCurrentState(), DEFAULT);
    manager.switchState(BOOTLOADER);
    manager.switchState(FIRMWARE);
    EXPECT_THAT(calls, ElementsAre("bootloader entered as BOOTLOADER", "bootloader left as BOOTLOADER",
                                   "firmware entered as FIRMWARE"));
    EXPECT_THAT(transitions(), ElementsAre("from DEFAULT state to BOOTLOADER state",
                                           "from BOOTLOADER state to FIRMWARE state"));
}

TEST_F(StateManager, ASwitchToTheCurrentStateLeavesAndEntersItAgain)
{
    manager.switchState(FIRMWARE);
    calls.clear();
    manager.switchState(FIRMWARE);
    EXPECT_THAT(calls, ElementsAre("firmware left as FIRMWARE", "firmware entered as FIRMWARE"));
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
    EXPECT_THAT(transitions(),
                ElementsAre("from DEFAULT state to FIRMWARE state", "from FIRMWARE state to ERROR state"));
}

TEST_F(StateManager, AStateWithoutHandlerIsEnteredAllTheSame)
{
    manager.switchState(DISABLED);
    manager.switchState(ERROR);
    EXPECT_THAT(calls, ElementsAre("error entered as ERROR"));
}

struct NoState
{
    int value;
    const char* logged;
};
void PrintTo(const NoState& row, std::ostream* out)
{
    *out << row.logged;
}
class ValuesThatAreNoState : public StateManager, public testing::WithParamInterface<NoState>
{
};

TEST_P(ValuesThatAreNoState, AreLoggedAndChangeNothing)
{
    const auto target = static_cast<BriscaState>(GetParam().value);
    RecordingState never("never", calls, manager);
    manager.switchState(BOOTLOADER);
    calls.clear();
    log.clear();
    manager.registerStateHandler(target, never);
    manager.switchState(target);
    EXPECT_EQ(manager.getCurrentState(), BOOTLOADER);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(transitions(),
                ElementsAre(std::string("from BOOTLOADER state to ") + GetParam().logged + " state"));
}

INSTANTIATE_TEST_SUITE_P(Values, ValuesThatAreNoState,
                         testing::Values(NoState{0, "DEFAULT"}, NoState{5, "Undefined:5"},
                                         NoState{9, "Undefined:9"}, NoState{-1, "Undefined:4294967295"}));
}  // namespace
