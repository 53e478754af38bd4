#pragma once

#include "StateHandlerI.h"

class BriscaStateManagerI;
class IoEfr32ManagerI;

/// DISABLED: Bluetooth is switched off on request, the chip is held in reset. Main thread only.
class DisabledState : public StateHandlerI
{
public:
    DisabledState(BriscaStateManagerI& stateManager, IoEfr32ManagerI& ioEfr32Manager);

    void onEnter() override;
    /// Nothing: the entry of the next state pulses the reset line, which releases it.
    void onExit() override {}

    /// Switches to FIRMWARE; silently refused in another state.
    void enable();
    /// Switches to BOOTLOADER.
    void restart();

private:
    BriscaStateManagerI& m_stateManager;
    IoEfr32ManagerI& m_ioEfr32Manager;
};
