#include "BriscaService.h"

#include "BluetoothManager.h"
#include "ServiceAdaptor.h"

namespace {
using namespace std::chrono_literals;

constexpr const char* kResetPinPath = "/dev/evse/io_efr32_reset";
constexpr const char* kUartPath = "/dev/evse/tty_efr32";
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
      m_dbus(m_stateManager, m_bootloaderState, m_firmwareState, m_disabledState, m_errorState, nullptr),
      m_systemBus(m_dbus),
      m_systemd(vitals()),
      m_statusLine(m_stateManager, m_bootloaderState, m_bootloader)
{
    BluetoothManager::instance().setUartName(kUartPath);
}

void BriscaService::init()
{
    new ServiceAdaptor(&m_dbus);  // owned by its parent
    m_systemBus.open();
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

void BriscaService::tellReady()
{
    m_systemd.ready();
    m_statusLine.start();
}

std::vector<Systemd::Vital> BriscaService::vitals() const
{
    return {{"event pump", 10s, BluetoothManager::pumpSilence},
            {"chip during the upload", 60s, [this] { return m_bootloader.uploadSilence(); }}};
}
