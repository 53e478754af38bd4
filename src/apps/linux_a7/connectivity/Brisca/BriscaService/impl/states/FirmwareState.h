#pragma once

#include "CoapProcess.h"
#include "StateHandlerI.h"

#include <QString>

class An760I;
class BluetoothManager;
class BriscaStateManagerI;
class IoEfr32ManagerI;

/// FIRMWARE: the chip runs its BLE firmware, the BLE stack is up and the CoAP application runs. Main thread
/// only; the entry blocks for the reset, the prompt and the start of the application.
class FirmwareState : public StateHandlerI
{
public:
    FirmwareState(BriscaStateManagerI& stateManager, IoEfr32ManagerI& ioEfr32Manager, An760I& bootloader);

    /// Brings chip, BLE stack and application up from a chip reset; switches to ERROR when that fails.
    void onEnter() override;
    /// Kills the application without waiting for its end and stops the BLE stack.
    void onExit() override;

    /// Leaves and enters this state.
    void restart();
    /// Switches to DISABLED; silently refused in another state.
    void disable();
    /// 12 lowercase hex digits; empty in another state or on failure.
    [[nodiscard]] QString getBleMacAddress();
    /// Drops the connected phone; refused with one line in another state.
    void forceDeviceDisconnection();

private:
    void recover();
    [[nodiscard]] bool reachPrompt();
    [[nodiscard]] bool initBle();
    [[nodiscard]] bool startApplication();
    [[nodiscard]] bool startBle();
    void failEntry();

    static constexpr int kProcessStartTimeoutMs = 15000;

    BriscaStateManagerI& m_stateManager;
    IoEfr32ManagerI& m_ioEfr32Manager;
    BluetoothManager* m_bluetoothManager;
    An760I& m_bootloader;
    CoapProcess m_coapProcess;
};
