#include "BriscaService.h"

#include "BluetoothManager.h"
#include "ServiceAdaptor.h"

#include <QDBusConnection>

#include <thread>

namespace {
constexpr const char* kResetPinPath = "/dev/evse/io_efr32_reset";
constexpr const char* kUartPath = "/dev/evse/tty_efr32";

/// A connection that the main thread opens holds requests back until the event loop runs and then delivers
/// newer ones before them. One that another thread opens keeps the order; its requests wait for the event
/// loop, too, because they are served on the main thread.
QDBusConnection openSystemBus()
{
    std::thread([] { QDBusConnection::systemBus(); }).join();
    return QDBusConnection::systemBus();
}
}  // namespace

BriscaService::BriscaService(QObject* parent)
    : QObject(parent),
      m_resetPin(kResetPinPath),
      m_ioEfr32Manager(m_resetPin),
      m_bootloader(kUartPath),
      m_bootloaderState(m_stateManager, m_ioEfr32Manager, m_bootloader),
      m_firmwareState(m_stateManager, m_ioEfr32Manager, m_bootloader),
      m_disabledState(m_stateManager, m_ioEfr32Manager),
      m_errorState(m_stateManager),
      m_dbus(m_stateManager, m_bootloaderState, m_firmwareState, m_disabledState, m_errorState, nullptr)
{
    BluetoothManager::instance().setUartName(kUartPath);
}

void BriscaService::init()
{
    new ServiceAdaptor(&m_dbus);  // owned by its parent
    QDBusConnection bus = openSystemBus();
    bus.registerObject(QStringLiteral("/"), &m_dbus, QDBusConnection::ExportAdaptors);
    bus.registerService(QStringLiteral("org.voltra.brisca"));
    m_dbus.init();
    m_stateManager.registerStateHandler(BOOTLOADER, m_bootloaderState);
    m_stateManager.registerStateHandler(FIRMWARE, m_firmwareState);
    m_stateManager.registerStateHandler(DISABLED, m_disabledState);
    m_stateManager.registerStateHandler(ERROR, m_errorState);
}

void BriscaService::start()
{
    m_stateManager.switchState(BOOTLOADER);
}
