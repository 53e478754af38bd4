#include "BluetoothManager.h"

#include "BridgeTasks.h"
#include "GBSSlave.h"
#include "facade/Log.h"
#include "facade/LogText.h"

BRISCA_LOG_NODE(logNode, "BriscaService.comm.BluetoothManager");

namespace {
constexpr unsigned short kAdvertiseUntilStopped = 0;
}  // namespace

BluetoothManager::BluetoothManager() : m_bleName(QStringLiteral("Voltra")), m_manufacturerData{0x4CF4, 0x0100}
{
    Brisca::setSilenceCallback([] { Q_EMIT instance().chipSilent(); });
}

BluetoothManager& BluetoothManager::instance()
{
    // The event task outlives it: an ordinary end of the process runs no static destructors. The one of a
    // crash does, possibly on a thread that holds a lock of the stack, so the destructor must not call into
    // that.
    static BluetoothManager singleton;
    return singleton;
}

void BluetoothManager::setUartName(const char* name)
{
    m_uartName = QString::fromLatin1(name);
}

bool BluetoothManager::initBleCom()
{
    if (m_uartName.isEmpty()) {
        BRISCA_ERROR(logNode, "Set the UART name before initializing stack");
        return false;
    }
    if (m_stack.init(m_uartName.toUtf8().constData(), m_manufacturerData, m_bleName, bleEventCallback) != 1) {
        BRISCA_ERROR(logNode, "Cannot initialize Brisca stack");
        return false;
    }
    BRISCA_TRACE(logNode, "Brisca stack initialized.");
    return true;
}

bool BluetoothManager::start()
{
    if (m_bleStarted) {
        BRISCA_WARN(logNode, "BLE communication already started.");
        return false;
    }
    if (m_stack.startStack() != 1) {
        BRISCA_ERROR(logNode, "Cannot start BLE stack.");
        return false;
    }
    BRISCA_TRACE(logNode, "BLE communication started.");
    return true;
}

void BluetoothManager::stop()
{
    if (m_bleStarted.exchange(false))
        BRISCA_DEBUG(logNode, "Stop the BLE stack");
}

void BluetoothManager::setBleName(const QString& name)
{
    BRISCA_DEBUG(logNode, "BLE name changed from %s to %s.", printable(m_bleName.toStdString()).c_str(),
                 printable(name.toStdString()).c_str());
    m_bleName = name;
}

QString BluetoothManager::getBleMacAddress() const
{
    return m_stack.getBLEAddress();
}

int BluetoothManager::getBleState() const
{
    return m_stack.getBriscaState();
}

int BluetoothManager::peekBleState()
{
    return GBSSlave_PeekState();
}

std::optional<std::chrono::system_clock::time_point> BluetoothManager::chipSilentSince() const
{
    const std::chrono::milliseconds silence = m_stack.silence();
    if (silence < BridgeTasks::reportedSilence())
        return std::nullopt;
    return std::chrono::system_clock::now() - silence;
}

void BluetoothManager::resetBleStartedFlag()
{
    // First the line: no event that begins after this is of the chip's former life.
    GBSSlave_LetGoLine();
    const std::lock_guard lock(m_resetLock);
    ++m_resets;
    m_bleStarted = false;
}

unsigned int BluetoothManager::disconnectDevice()
{
    BRISCA_NOTIC(logNode, "Device disconnection asked");
    return GBSSlave_TerminateLink();
}

void BluetoothManager::onConnectionStatusChanged(bool connected)
{
    if (m_connected.exchange(connected) == connected)
        return;
    if (connected) {
        BRISCA_DEBUG(logNode, "BLE connection opened");
        Q_EMIT newDeviceConnected();
    } else {
        BRISCA_DEBUG(logNode, "BLE connection closed");
        Q_EMIT deviceDisconnected();
    }
}

void BluetoothManager::bleIsReady()
{
    m_bleStarted = true;
    Q_EMIT bleIsStarted();
}

void BluetoothManager::announceBoot(unsigned resets)
{
    // A reset on the main thread may have overtaken this boot event; the flag that it cleared stays cleared
    // then, or the next start() would be refused.
    const std::lock_guard lock(m_resetLock);
    if (resets == m_resets && !m_bleStarted)
        bleIsReady();
}

void BluetoothManager::advertise()
{
    BRISCA_INFO(logNode, "[VoltraEventCallback] Start advertising");
    m_stack.startAdvertising(kAdvertiseUntilStopped);
}

void BluetoothManager::onBoot(unsigned resets)
{
    // A chip that has just booted has no link. One that was reset under a connection never reports its end.
    onConnectionStatusChanged(false);
    m_stack.configureSecurity();
    announceBoot(resets);
    advertise();
}

void BluetoothManager::onConnectionOpened(unsigned /*resets*/)
{
    onConnectionStatusChanged(true);
}

void BluetoothManager::onConnectionClosed(unsigned /*resets*/)
{
    advertise();
    onConnectionStatusChanged(false);
}

void BluetoothManager::bleEventCallback(unsigned int eventId, gecko_cmd_packet* /*packet*/)
{
    struct EventRow
    {
        unsigned id;
        void (BluetoothManager::*handler)(unsigned resets);
    };
    static constexpr EventRow kEvents[] = {
        {kGbsEventBoot, &BluetoothManager::onBoot},
        {kGbsEventConnectionOpened, &BluetoothManager::onConnectionOpened},
        {kGbsEventConnectionClosed, &BluetoothManager::onConnectionClosed},
    };
    BluetoothManager& manager = instance();
    unsigned resets = 0;
    {
        const std::lock_guard lock(manager.m_resetLock);
        resets = manager.m_resets;
    }
    for (const EventRow& row : kEvents)
        if (row.id == eventId)
            (manager.*row.handler)(resets);
}
