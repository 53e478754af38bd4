#include "Brisca.h"

#include "BTP_Core.h"
#include "BridgePipes.h"
#include "EventPump.h"
#include "GBSSlave.h"
#include "GOS.h"
#include "PipeTasks.h"
#include "facade/Log.h"

BRISCA_LOG_NODE(logNode, "Brisca");

namespace {
// Pairing: bonding requests need no confirmation by the station.
constexpr std::uint8_t kSecurityFlags = 4;
constexpr std::uint8_t kNoInputNoOutput = 3;

constexpr int kMailboxSize = 4;

std::atomic<bool> s_callbacksRegistered{false};  // set once, by "GBS2App"

void Task_GBS2App()
{
    BRISCA_NOTIC(logNode, "Start GBS2App task");
    GBSSlave_SetGATTWriteCallback(PipeTasks::GATTWriteCallback);
    GBSSlave_SetGiveDeviceNameCallback(Brisca::giveDeviceName);
    GBSSlave_SetEventCallback(Brisca::GetEventsCallback());
    s_callbacksRegistered = true;
    s_callbacksRegistered.notify_all();
}

/// A boot event handled before its callback is known would leave the station silent.
void Task_GBS2Event()
{
    s_callbacksRegistered.wait(false);  // ends as soon as "GBS2App", which is started with it, has run
    EventPump::Task_GBS2Event();
}

struct TaskRow
{
    const char* name;
    void (*entry)();
};
constexpr TaskRow kTasks[] = {
    {"BTP_Manager_Process", BTP_Manager_Process_Task},  // in the order of their GOS ids, from 0
    {"GBS2App", Task_GBS2App},
    {"GBS2Event", Task_GBS2Event},
    {"BTPtoCoAP", PipeTasks::Task_BTP_to_CoAP},
    {"CoAPtoBTP", PipeTasks::Task_Coap_to_BTP},
};

void startTasks()
{
    EventPump::noteProgress();
    for (const TaskRow& task : kTasks)
        GOS_CreateTask(task.name, task.entry, kMailboxSize);
    GOS_StartTasks();
}
}  // namespace

Brisca::Brisca()
    : m_txPipePath(QStringLiteral("/tmp/ttyBleTx")), m_rxPipePath(QStringLiteral("/tmp/ttyBleRx"))
{
}

Brisca::~Brisca()
{
    EventPump::stop();
}

int Brisca::init(const char* uart, ManufacturerData data, const QString& name, EventsCallback callback)
{
    EventPump::stop();
    BTP_Restart();  // before GBSSlave_Init tells that everything begun until now is over
    if (GBSSlave_Init(uart) != 1 || CreatePipes() != 1)
        return 0;
    {
        const std::lock_guard lock(s_identityLock);
        m_manufacturerData = data;
        m_DeviceName = name;
    }
    m_AppEventsCallback = callback;
    return 1;
}

int Brisca::CreatePipes()
{
    const bool created = BridgePipes::instance().create(m_txPipePath.toLocal8Bit().constData(),
                                                        m_rxPipePath.toLocal8Bit().constData());
    return created ? 1 : 0;
}

int Brisca::startStack()
{
    static std::once_flag started;
    std::call_once(started, startTasks);
    GBSSlave_SetEventCallback(GetEventsCallback());  // of the latest init()
    EventPump::start(*this);
    GBSSlave_ResumeEvents();
    return 1;
}

bool Brisca::configureSecurity()
{
    return GBSSlave_SetFlagsAndIOCap(kSecurityFlags, kNoInputNoOutput) == 1;
}

int Brisca::getBriscaState() const
{
    constexpr int kUnknown = -1;
    const int state = GBSSlave_GetState();
    return state <= GBS_LINK_CONNECTED ? state : kUnknown;
}

// ---- What the event task asks for -------------------------------------------------------------------------

LinkI::State Brisca::look() const
{
    if (!GBSSlave_HasBooted())
        return State::Booting;
    switch (GBSSlave_PeekState()) {
        case GBS_LINK_ADVERTISING:
            return State::Advertising;
        case GBS_LINK_CONNECTED:
            return State::Connected;
        default:
            return State::OffAir;
    }
}

tGBS_LinkCheck Brisca::check()
{
    const tGBS_LinkCheck answer = GBSSlave_CheckLink();
    if (answer == GBS_LINK_CHECK_ENDED)
        configureSecurity();  // perhaps it ended by a restart
    return answer;
}

void Brisca::advertise()
{
    configureSecurity();  // perhaps a boot event has been lost
    startAdvertising(0);
}

bool Brisca::refresh()
{
    GBSSlave_EndDiscoverable();
    // Without an answer to that the chip may still advertise, and would refuse the start again and again.
    // And a phone that connected before it was stopped is served first.
    if (GBSSlave_PeekState() != GBS_LINK_READY || !EventPump::isStarted() || GBSSlave_IsConnectionPending())
        return false;
    const bool secured = configureSecurity();
    startAdvertising(0);
    return secured && GBSSlave_PeekState() == GBS_LINK_ADVERTISING;
}
