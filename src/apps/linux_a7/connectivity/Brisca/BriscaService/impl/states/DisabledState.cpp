#include "DisabledState.h"

#include "BriscaStateManagerI.h"
#include "IoEfr32ManagerI.h"
#include "facade/Log.h"

// Never written to; the configuration and the tree print know the name.
[[maybe_unused]] BRISCA_LOG_NODE(logNode, "BriscaService.states.DisabledState");

DisabledState::DisabledState(BriscaStateManagerI& stateManager, IoEfr32ManagerI& ioEfr32Manager)
    : m_stateManager(stateManager), m_ioEfr32Manager(ioEfr32Manager)
{
}

void DisabledState::onEnter()
{
    m_ioEfr32Manager.resetEfr32(true);
}

void DisabledState::enable()
{
    if (m_stateManager.getCurrentState() == DISABLED)
        m_stateManager.switchState(FIRMWARE);
}

void DisabledState::restart()
{
    m_stateManager.switchState(BOOTLOADER);
}
