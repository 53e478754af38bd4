#include "CoapProcess.h"
#include "DisabledState.h"
#include "ErrorState.h"
#include "Fakes.h"

namespace {
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
    EXPECT_EQ(joinPath("", "chp"), "/chp");
    EXPECT_EQ(joinPath("/", "/"), "/");
}
}  // namespace
