#include "ErrorState.h"

#include "BriscaStateManagerI.h"
#include "facade/Log.h"

// Never written to; the configuration and the tree print know the name.
[[maybe_unused]] BRISCA_LOG_NODE(logNode, "BriscaService.states.ErrorState");

ErrorState::ErrorState(BriscaStateManagerI& stateManager) : m_stateManager(stateManager) {}

void ErrorState::restart()
{
    m_stateManager.switchState(BOOTLOADER);
}
