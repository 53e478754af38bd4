#pragma once

#include <QObject>
#include <QString>

class BluetoothManager;
class BootloaderState;
class BriscaStateManagerI;
class DisabledState;
class ErrorState;
class FirmwareState;

/// The object on the bus: hands every request to the one state object that serves it, which refuses it when
/// it is not the current state, and turns notifications into signals that the adaptor relays to the bus.
/// Main thread only; notifications may be emitted on any thread.
class BriscaDbus : public QObject
{
    Q_OBJECT

public:
    /// Keeps all references; nothing is owned.
    BriscaDbus(BriscaStateManagerI& stateManager, BootloaderState& bootloaderState,
               FirmwareState& firmwareState, DisabledState& disabledState, ErrorState& errorState,
               QObject* parent);

    /// Connects the notifications of the Bluetooth manager and of the bootloader state. Call once.
    void init();

Q_SIGNALS:
    void fwUpdateComplete(bool isSuccess);
    void communicationError();
    void btDeviceConnected();
    void btDeviceDisconnected();
    void bleIsStarted();

public Q_SLOTS:
    int getBriscaState();
    void BriscaRestart();
    QString getFirmwareVersion();
    QString getMacAddress();
    void changeBleName(const QString& bleName);
    bool startFirmwareUpdate(const QString& filename);
    void enableBluetooth();
    void disableBluetooth();
    void startFirmwareApp();
    void disconnectBleDevice();

private Q_SLOTS:
    void onFwUpdateComplete(bool isSuccess);
    void onCommunicationError();
    void onBtDeviceConnected();
    void onBtDeviceDisconnected();
    void onBleStarted();

private:
    BriscaStateManagerI& m_stateManager;
    BootloaderState& m_bootloaderState;
    FirmwareState& m_firmwareState;
    DisabledState& m_disabledState;
    [[maybe_unused]] ErrorState& m_errorState;  // a restart out of ERROR goes through the bootloader state
    BluetoothManager* m_bluetoothManager;
};
