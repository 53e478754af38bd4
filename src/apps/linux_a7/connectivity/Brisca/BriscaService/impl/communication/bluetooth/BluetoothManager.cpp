#include "BluetoothManager.h"

#include "EventPump.h"
#include "GBSSlave.h"
#include "facade/Log.h"
#include "facade/LogText.h"

BRISCA_LOG_NODE(logNode, "BriscaService.comm.BluetoothManager");

namespace {
constexpr unsigned short kAdvertiseUntilStopped = 0;
}  // namespace

BluetoothManager::BluetoothManager() : m_bleName(QStringLiteral("Voltra")), m_manufacturerData{0x4CF4, 0x0100}
{
    EventPump::setSilenceCallback([] { Q_EMIT instance().chipSilent(); });
}

BluetoothManager& BluetoothManager::instance()
{
    // Only the exit() of a crash destroys it, perhaps on a thread that holds a lock of the stack: the
    // destructor must not call into that.
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
    if (m_boot == Boot::Announced) {
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
    if (m_boot.exchange(Boot::Awaited) == Boot::Announced)
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

std::optional<std::chrono::milliseconds> BluetoothManager::pumpSilence()
{
    return EventPump::silence();
}

std::optional<std::chrono::system_clock::time_point> BluetoothManager::chipSilentSince()
{
    const std::chrono::milliseconds silence = EventPump::chipSilence();
    if (silence < EventPump::reportedSilence())
        return std::nullopt;
    return std::chrono::system_clock::now() - silence;
}

void BluetoothManager::resetBleStartedFlag()
{
    // First the line: no event that begins after this is of the chip's former life.
    GBSSlave_LetGoLine();
    m_boot = Boot::Awaited;
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
    m_boot = Boot::Announced;
    Q_EMIT bleIsStarted();
}

void BluetoothManager::advertise()
{
    BRISCA_INFO(logNode, "[VoltraEventCallback] Start advertising");
    m_stack.startAdvertising(kAdvertiseUntilStopped);
}

void BluetoothManager::onBoot()
{
    Boot expected = Boot::Awaited;
    m_boot.compare_exchange_strong(expected, Boot::Begun);
    // A chip that has just booted has no link. One that was reset under a connection never reports its end.
    onConnectionStatusChanged(false);
    m_stack.configureSecurity();
    // After a reset that has come meanwhile on the main thread, the next boot is awaited already.
    expected = Boot::Begun;
    if (m_boot.compare_exchange_strong(expected, Boot::Announced))
        Q_EMIT bleIsStarted();
    advertise();
}

void BluetoothManager::bleEventCallback(unsigned int eventId, gecko_cmd_packet* /*packet*/)
{
    BluetoothManager& manager = instance();
    switch (eventId) {
        case kGbsEventBoot:
            manager.onBoot();
            break;
        case kGbsEventConnectionOpened:
            manager.onConnectionStatusChanged(true);
            break;
        case kGbsEventConnectionClosed:
            manager.advertise();
            manager.onConnectionStatusChanged(false);
            break;
        default:
            break;
    }
}
