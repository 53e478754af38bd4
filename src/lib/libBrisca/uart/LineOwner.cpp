#include "LineOwner.h"

#include "BglibLock.h"
#include "LineState.h"
#include "facade/Log.h"
#include "gecko.h"
#include "uart_posix.h"

#include <atomic>
#include <chrono>

BRISCA_LOG_NODE(logNode, "serial_brisca");

namespace {
// Ten times what an exchange needs to notice that the line is gone.
constexpr std::chrono::seconds kReleaseLimit{2};

// Written by the thread that owns the line, read by any.
std::atomic<bool> held{false};
std::atomic<bool> isGone{false};
std::atomic<bool> pumpActive{true};
}  // namespace

bool LineState::release()
{
    uartAbandon();
    const bool idle = BglibLock::waitUntilFree(kReleaseLimit);
    if (!idle)
        BRISCA_WARN(logNode, "A packet exchange is still in progress while the line is given up");
    if (held.exchange(false))
        uartClose();
    return idle;
}

void LineState::taken()
{
    held = true;
    isGone = false;
}

void LineOwner::letGo()
{
    pumpActive = false;
    isGone = true;
    if (LineState::release())
        gecko_discard_events();
    BRISCA_DEBUG(logNode, "The line is let go");
}

bool LineOwner::isHeld()
{
    return held;
}

bool LineOwner::isLetGo()
{
    return isGone;
}

void LineOwner::resumeEvents()
{
    pumpActive = true;
}

bool LineOwner::eventsActive()
{
    return pumpActive;
}
