#include "Brisca.h"

#include "BTP_Core.h"
#include "BridgePipes.h"
#include "BridgeTasks.h"
#include "GBSSlave.h"

#include <algorithm>

namespace {
// Pairing: bonding requests need no confirmation by the station.
constexpr std::uint8_t kSecurityFlags = 4;
constexpr std::uint8_t kNoInputNoOutput = 3;
}  // namespace

std::mutex Brisca::s_identityLock;
QString Brisca::m_DeviceName;
std::atomic<Brisca::EventsCallback> Brisca::m_AppEventsCallback{nullptr};
std::atomic<Brisca::SilenceCallback> Brisca::s_silenceCallback{nullptr};

Brisca::Brisca()
    : m_txPipePath(QStringLiteral("/tmp/ttyBleTx")), m_rxPipePath(QStringLiteral("/tmp/ttyBleRx"))
{
}

Brisca::~Brisca()
{
    BridgeTasks::forget(*this);
}

int Brisca::init(const char* uart, ManufacturerData data, const QString& name, EventsCallback callback)
{
    m_started = false;
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
    BridgeTasks::startOnce(*this);
    m_startedAt = std::chrono::steady_clock::now();
    m_started = true;
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

bool Brisca::isStarted() const
{
    return m_started && GBSSlave_IsLineHeld();
}

std::optional<std::chrono::milliseconds> Brisca::pumpSilence()
{
    return BridgeTasks::pumpSilence();
}

std::chrono::milliseconds Brisca::silence() const
{
    using namespace std::chrono;
    if (!isStarted())
        return milliseconds(0);
    const auto running = duration_cast<milliseconds>(steady_clock::now() - m_startedAt.load());
    return std::min(running, milliseconds(GBSSlave_GetSilence()));
}

void Brisca::tellSilence()
{
    if (const SilenceCallback callback = s_silenceCallback)
        callback();
}

QString Brisca::GetDeviceName()
{
    const std::lock_guard lock(s_identityLock);
    return m_DeviceName;
}

Brisca::EventsCallback Brisca::GetEventsCallback()
{
    return m_AppEventsCallback;
}

Brisca::ManufacturerData Brisca::manufacturerData() const
{
    const std::lock_guard lock(s_identityLock);
    return m_manufacturerData;
}
