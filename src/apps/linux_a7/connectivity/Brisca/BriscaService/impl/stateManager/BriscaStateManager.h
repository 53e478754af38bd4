#pragma once

#include "BriscaStateManagerI.h"

#include <array>

/// The one state manager of the service. Main thread only.
class BriscaStateManager : public BriscaStateManagerI
{
public:
    void registerStateHandler(const BriscaState& state, StateHandlerI& handler) override;
    void switchState(const BriscaState& newState) override;
    [[nodiscard]] BriscaState getCurrentState() override { return m_current; }

private:
    BriscaState m_current = DEFAULT;
    std::array<StateHandlerI*, ERROR + 1> m_handlers = {};  // by state value; DEFAULT's stays empty
};
