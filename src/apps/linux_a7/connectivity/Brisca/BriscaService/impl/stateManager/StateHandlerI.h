#pragma once

/// What the state manager needs of one state. Called on the main thread.
class StateHandlerI
{
public:
    virtual ~StateHandlerI() = default;
    /// Runs after the state has become the current one; may switch to another state itself.
    virtual void onEnter() = 0;
    /// Runs while the state is still the current one.
    virtual void onExit() = 0;
};
