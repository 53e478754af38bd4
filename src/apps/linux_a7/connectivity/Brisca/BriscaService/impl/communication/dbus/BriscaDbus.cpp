#include "BriscaDbus.h"

#include "BluetoothManager.h"
#include "BootloaderState.h"
#include "BriscaStateManagerI.h"
#include "DisabledState.h"
#include "ErrorState.h"
#include "FirmwareState.h"
#include "facade/Log.h"

BRISCA_LOG_NODE(logNode, "BriscaService.comm.BriscaDbus");

BriscaDbus::BriscaDbus(BriscaStateManagerI& stateManager, BootloaderState& bootloaderState,
                       FirmwareState& firmwareState, DisabledState& disabledState, ErrorState& errorState,
                       QObject* parent)
    : QObject(parent),
      m_stateManager(stateManager),
      m_bootloaderState(bootloaderState),
      m_firmwareState(firmwareState),
      m_disabledState(disabledState),
      m_errorState(errorState),
      m_bluetoothManager(&BluetoothManager::instance())
{
}

void BriscaDbus::init()
{
    // Automatic connections: the Bluetooth manager emits on a task of the BLE stack, so its notifications are
    // queued onto this object's thread, in order.
    connect(m_bluetoothManager, &BluetoothManager::communicationError, this,
            &BriscaDbus::onCommunicationError);
    connect(m_bluetoothManager, &BluetoothManager::newDeviceConnected, this,
            &BriscaDbus::onBtDeviceConnected);
    connect(m_bluetoothManager, &BluetoothManager::deviceDisconnected, this,
            &BriscaDbus::onBtDeviceDisconnected);
    connect(&m_bootloaderState, &BootloaderState::fwUpdateCompleteStatus, this,
            &BriscaDbus::onFwUpdateComplete);
    connect(m_bluetoothManager, &BluetoothManager::bleIsStarted, this, &BriscaDbus::onBleStarted);
}

int BriscaDbus::getBriscaState()
{
    BRISCA_DEBUG(logNode, "Brisca service: Get state request");
    return m_stateManager.getCurrentState();
}

void BriscaDbus::BriscaRestart()
{
    BRISCA_DEBUG(logNode, "Brisca service: Restart request");
    if (m_stateManager.getCurrentState() == FIRMWARE)
        m_firmwareState.restart();
    else
        m_bootloaderState.restart();
}

QString BriscaDbus::getFirmwareVersion()
{
    BRISCA_DEBUG(logNode, "Brisca service: Get firemware version");
    return m_bootloaderState.getFwVersion();
}

QString BriscaDbus::getMacAddress()
{
    BRISCA_DEBUG(logNode, "Brisca service: Get BLE mac address");
    return m_firmwareState.getBleMacAddress();
}

void BriscaDbus::changeBleName(const QString& bleName)
{
    BRISCA_DEBUG(logNode, "Brisca service: Set BLE name");
    m_bootloaderState.setBleName(bleName);
}

bool BriscaDbus::startFirmwareUpdate(const QString& filename)
{
    BRISCA_DEBUG(logNode, "Brisca service: Start firmware update");
    return m_bootloaderState.startFwUpdate(filename);
}

void BriscaDbus::enableBluetooth()
{
    BRISCA_DEBUG(logNode, "Brisca service: Enable Bluetooth");
    m_disabledState.enable();
}

void BriscaDbus::disableBluetooth()
{
    BRISCA_DEBUG(logNode, "Brisca service: Disable Bluetooth");
    m_firmwareState.disable();
}

void BriscaDbus::startFirmwareApp()
{
    BRISCA_DEBUG(logNode, "Brisca service: Start firmware");
    m_bootloaderState.startFirmware();
}

void BriscaDbus::disconnectBleDevice()
{
    BRISCA_DEBUG(logNode, "Brisca service: disconnect device");
    m_firmwareState.forceDeviceDisconnection();
}

void BriscaDbus::onFwUpdateComplete(bool isSuccess)
{
    BRISCA_DEBUG(logNode, "Signal Fw update %s sent", isSuccess ? "success" : "failed");
    Q_EMIT fwUpdateComplete(isSuccess);
}

void BriscaDbus::onCommunicationError()
{
    BRISCA_DEBUG(logNode, "Communication error signal sent");
    Q_EMIT communicationError();
}

void BriscaDbus::onBtDeviceConnected()
{
    BRISCA_DEBUG(logNode, "BLE Device connected signal sent");
    Q_EMIT btDeviceConnected();
}

void BriscaDbus::onBtDeviceDisconnected()
{
    BRISCA_DEBUG(logNode, "BLE Device disconnected signal sent");
    Q_EMIT btDeviceDisconnected();
}

void BriscaDbus::onBleStarted()
{
    BRISCA_DEBUG(logNode, "BLE Device started signal sent");
    Q_EMIT bleIsStarted();
}
