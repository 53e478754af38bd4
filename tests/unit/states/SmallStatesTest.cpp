#include "CoapProcess.h"
#include "DisabledState.h"
#include "ErrorState.h"
#include "Fakes.h"

namespace {
using testing::ElementsAre;
using testing::IsEmpty;

TEST(DisabledStateTest, HoldsTheChipInResetUntilEnabled)
{
    Calls calls;
    FakeResetLine resetLine(calls);
    BriscaStateManager manager;
    DisabledState state(manager, resetLine);
    manager.registerStateHandler(DISABLED, state);

    state.enable();
    EXPECT_EQ(manager.getCurrentState(), DEFAULT) << "enabled in another state";
    manager.switchState(DISABLED);
    EXPECT_THAT(calls, ElementsAre("hold in reset"));
    state.enable();
    EXPECT_EQ(manager.getCurrentState(), FIRMWARE);
    EXPECT_THAT(calls, ElementsAre("hold in reset")) << "the next entry releases the line";
    state.restart();
    EXPECT_EQ(manager.getCurrentState(), BOOTLOADER);
}

TEST(ErrorStateTest, IsLeftByARestartOnly)
{
    BriscaStateManager manager;
    ErrorState state(manager);
    manager.registerStateHandler(ERROR, state);
    manager.switchState(ERROR);
    manager.switchState(ERROR);
    EXPECT_EQ(manager.getCurrentState(), ERROR);
    state.restart();
    EXPECT_EQ(manager.getCurrentState(), BOOTLOADER);
}

TEST(JoinPath, PutsExactlyOneSlashBetween)
{
    for (const char* const dir : {"/evse/app/bin", "/evse/app/bin/"}) {
        for (const char* const name : {"chp", "/chp"})
            EXPECT_EQ(joinPath(dir, name), "/evse/app/bin/chp") << dir << " and " << name;
    }
    EXPECT_EQ(joinPath("", "chp"), "/chp");
    EXPECT_EQ(joinPath("/", "/"), "/");
}
}  // namespace
