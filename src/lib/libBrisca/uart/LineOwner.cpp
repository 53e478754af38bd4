#include "LineOwner.h"

#include "BglibLock.h"
#include "LineState.h"
#include "UsageGate.h"
#include "facade/Log.h"
#include "gecko.h"
#include "uart_posix.h"

#include <atomic>
#include <chrono>

BRISCA_LOG_NODE(logNode, "serial_brisca");

namespace {
// Ten times what an exchange needs to notice that the line is gone.
constexpr std::chrono::seconds kReleaseLimit{2};
// Handling an event takes a few commands at most, and they fail at once now.
constexpr std::chrono::seconds kHandlingLimit{2};

// Written by the thread that owns the line, read by any.
std::atomic<bool> held{false};
std::atomic<bool> isGone{false};
std::atomic<bool> pumpActive{true};
UsageGate& turns = *new UsageGate;  // never destroyed: the pump passes it until the process is gone
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
    const bool released = LineState::release();
    if (!turns.waitUntilIdle(kHandlingLimit))
        BRISCA_WARN(logNode, "An event is still being handled while the line is given up");
    if (released)
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

LineOwner::PumpTurn::PumpTurn()
{
    turns.enter();
    m_allowed = pumpActive;
}

LineOwner::PumpTurn::~PumpTurn()
{
    turns.leave();
}
