#pragma once

#include "BriscaState.h"

#include <QTimer>

#include <chrono>
#include <string>

class An760;
class BootloaderState;
class BriscaStateManager;

/// Tells systemd in a few words what the service is doing, which "systemctl status" shows: the state, the
/// progress of a firmware update, who is connected, since when the chip is silent. Main thread only.
///
/// What it tells, it reads four times a second, so that nothing on the way of a request waits for it. Only
/// the beginning of an entry, which blocks the event loop, is told at once. At most ten texts a second.
class StatusLine
{
public:
    /// Follows the three from now on.
    StatusLine(BriscaStateManager& stateManager, const BootloaderState& bootloaderState,
               const An760& bootloader);
    /// Looks at once, and from now on with the event loop. Needs the application object.
    void start();

private:
    void onEntry(bool begins);
    void look();
    [[nodiscard]] std::string text() const;
    [[nodiscard]] std::string bootloaderText() const;
    [[nodiscard]] static std::string firmwareText();

    BriscaStateManager& m_stateManager;
    const BootloaderState& m_bootloaderState;
    const An760& m_bootloader;
    QTimer m_timer;
    bool m_isEntering = false;
    BriscaState m_tried = DEFAULT;  // what was entered last, ERROR apart
    std::string m_told;
    std::chrono::steady_clock::time_point m_toldAt;
};
