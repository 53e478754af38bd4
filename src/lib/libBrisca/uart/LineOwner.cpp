#include "LineOwner.h"

#include "FairMutex.h"
#include "GosMutex.h"
#include "facade/Log.h"
#include "uart_posix.h"

#include <atomic>
#include <chrono>
#include <cstdint>

BRISCA_LOG_NODE(logNode, "serial_brisca");

namespace {
constexpr std::uint32_t kBaudRate = 115200;
constexpr std::uint32_t kFlowControl = 1;
constexpr std::int32_t kReadTimeoutMs = 100;
// Ten times what an exchange needs to notice that the line is gone.
constexpr std::chrono::seconds kReleaseLimit{2};
// Handling an event takes a few commands at most, and they fail at once now.
constexpr std::chrono::seconds kHandlingLimit{2};

constexpr GosMutex packetMutex(GBS_BGLIB_SEMAPHORE_ID);

enum class State { Unclaimed, LetGo, Held, Pumped };
std::atomic<State> state{State::Unclaimed};

// Never destroyed: the tasks take turns until the process is gone.
FairMutex& exchanges = *new FairMutex;
FairMutex& pump = *new FairMutex;

bool eventsAreHandled()
{
    const State now = state;
    return now == State::Unclaimed || now == State::Pumped;
}

/// Ends the exchange in progress and closes the terminal, if it is open.
bool release(State next)
{
    const bool wasHeld = LineOwner::isHeld();
    state = next;
    uartAbandon();
    const bool idle = exchanges.waitForThoseWhoAsked(kReleaseLimit);
    if (!idle)
        BRISCA_WARN(logNode, "A packet exchange is still in progress while the line is given up");
    if (wasHeld)
        uartClose();
    return idle;
}
}  // namespace

bool LineOwner::take(const char* path)
{
    const bool handled = eventsAreHandled();
    release(handled ? State::Unclaimed : State::LetGo);
    if (uartOpen(path, kBaudRate, kFlowControl, kReadTimeoutMs) == -1)
        return false;
    state = handled ? State::Pumped : State::Held;
    return true;
}

bool LineOwner::letGo()
{
    const bool idle = release(State::LetGo);
    if (!pump.waitForThoseWhoAsked(kHandlingLimit))
        BRISCA_WARN(logNode, "An event is still being handled while the line is given up");
    BRISCA_DEBUG(logNode, "The line is let go");
    return idle;
}

void LineOwner::resumeEvents()
{
    if (state == State::Held)
        state = State::Pumped;
}

bool LineOwner::isHeld()
{
    const State now = state;
    return now == State::Held || now == State::Pumped;
}

bool LineOwner::isLetGo()
{
    return state == State::LetGo;
}

LineOwner::ExchangeTurn::ExchangeTurn() : m_isOutermost(exchanges.lock())
{
    if (m_isOutermost)
        packetMutex.lock();
}

LineOwner::ExchangeTurn::~ExchangeTurn()
{
    if (m_isOutermost)
        packetMutex.unlock();
    exchanges.unlock();
}

LineOwner::PumpTurn::PumpTurn() : m_isAllowed((pump.lock(), eventsAreHandled())) {}

LineOwner::PumpTurn::~PumpTurn()
{
    pump.unlock();
}
