#pragma once

#include "BriscaStateManagerI.h"

#include <array>
#include <functional>
#include <utility>

/// The one state manager of the service. Main thread only.
class BriscaStateManager : public BriscaStateManagerI
{
public:
    void registerStateHandler(const BriscaState& state, StateHandlerI& handler) override;
    void switchState(const BriscaState& newState) override;
    /// Called as an entry begins, with true, and when it has ended; the state is the entered one by then.
    void setObserver(std::function<void(bool begins)> observer) { m_observer = std::move(observer); }
    [[nodiscard]] BriscaState getCurrentState() override { return m_current; }

private:
    void enter(BriscaState target);

    BriscaState m_current = DEFAULT;
    std::function<void(bool begins)> m_observer = [](bool) {};
    std::array<StateHandlerI*, ERROR + 1> m_handlers = {};  // by state value; DEFAULT's stays empty
};
