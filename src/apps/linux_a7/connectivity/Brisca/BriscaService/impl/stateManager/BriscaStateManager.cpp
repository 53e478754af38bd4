#include "BriscaStateManager.h"

#include "StateHandlerI.h"
#include "facade/Log.h"

BRISCA_LOG_NODE(logNode, "BriscaService.StateManager");

namespace {
bool canBeEntered(BriscaState state)
{
    return state >= BOOTLOADER && state <= ERROR;
}
}  // namespace

void BriscaStateManager::registerStateHandler(const BriscaState& state, StateHandlerI& handler)
{
    if (canBeEntered(state))
        m_handlers[state] = &handler;
}

void BriscaStateManager::switchState(const BriscaState& newState)
{
    // A copy: the reference may be gone or changed when onEnter() has switched once more.
    const BriscaState target = newState;
    BRISCA_NOTIC(logNode, "Brisca service switch from %s state to %s state", to_string(m_current).c_str(),
                 to_string(target).c_str());
    if (!canBeEntered(target))
        return;
    if (StateHandlerI* const left = m_handlers[m_current])
        left->onExit();
    enter(target);
}

void BriscaStateManager::enter(BriscaState target)
{
    m_current = target;
    m_observer(true);
    if (StateHandlerI* const entered = m_handlers[target])
        entered->onEnter();
    m_observer(false);
}
