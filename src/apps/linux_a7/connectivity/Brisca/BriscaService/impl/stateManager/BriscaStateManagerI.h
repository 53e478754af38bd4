#pragma once

#include "BriscaState.h"

class StateHandlerI;

/// Holds the current state of the service and performs every transition. Main thread only.
class BriscaStateManagerI
{
public:
    virtual ~BriscaStateManagerI() = default;
    /// Sets the handler of a state, replacing an earlier one. The handler is not owned and must outlive the
    /// last transition. DEFAULT and values that are no state are ignored.
    virtual void registerStateHandler(const BriscaState& state, StateHandlerI& handler) = 0;
    /// Leaves the current state and enters @p newState, also when that is the current one (a restart).
    /// DEFAULT and values that are no state change nothing but are logged like a transition.
    virtual void switchState(const BriscaState& newState) = 0;
    [[nodiscard]] virtual BriscaState getCurrentState() = 0;
};
