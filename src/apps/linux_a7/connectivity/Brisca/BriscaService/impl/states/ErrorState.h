#pragma once

#include "StateHandlerI.h"

class BriscaStateManagerI;

/// ERROR: the entry of another state failed. Does nothing and is left by a restart request only; the chip
/// stays as the failed entry left it. Main thread only.
class ErrorState : public StateHandlerI
{
public:
    explicit ErrorState(BriscaStateManagerI& stateManager);

    void onEnter() override {}
    void onExit() override {}

    /// Switches to BOOTLOADER.
    void restart();

private:
    BriscaStateManagerI& m_stateManager;
};
