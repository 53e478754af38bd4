#include "FirmwareState.h"

#include "An760I.h"
#include "BluetoothManager.h"
#include "IoEfr32ManagerI.h"
#include "StateRequest.h"
#include "facade/Log.h"

#include <cstdlib>
#include <vector>

BRISCA_LOG_NODE(logNode, "BriscaService.states.FirmwareState");

namespace {
const char* toText(bool outcome)
{
    return outcome ? "true" : "false";
}
}  // namespace

FirmwareState::FirmwareState(BriscaStateManagerI& stateManager, IoEfr32ManagerI& ioEfr32Manager,
                             An760I& bootloader)
    : m_stateManager(stateManager),
      m_ioEfr32Manager(ioEfr32Manager),
      m_bluetoothManager(&BluetoothManager::instance()),
      m_bootloader(bootloader)
{
    // Queued to this thread, because the Bluetooth manager emits on a task of the BLE stack.
    QObject::connect(m_bluetoothManager, &BluetoothManager::chipSilent, &m_coapProcess,
                     [this] { recover(); });
}

void FirmwareState::onEnter()
{
    m_ioEfr32Manager.resetEfr32(false);
    BRISCA_NOTIC(logNode, "EFR32 restarted");
    if (!reachPrompt()) {
        failEntry();
        return;
    }
    // Deliberately silent: FIRMWARE with nothing running, which only a request ends.
    if (!m_bootloader.startFirmware())
        return;
    m_bootloader.close();  // the BLE stack opens the same device
    if (!initBle() || !startApplication() || !startBle())
        failEntry();
}

bool FirmwareState::reachPrompt()
{
    if (!m_bootloader.open())
        return false;
    std::vector<char> received;
    const bool detected = m_bootloader.sendCarriageReturn() && m_bootloader.waitCommandPrompt(received);
    BRISCA_NOTIC(logNode, "Prompt detected: %s", toText(detected));
    return detected;
}

bool FirmwareState::initBle()
{
    const bool initialized = m_bluetoothManager->initBleCom();
    BRISCA_NOTIC(logNode, "BLE initialized: %s", toText(initialized));
    return initialized;
}

bool FirmwareState::startApplication()
{
    // NOLINTNEXTLINE(cert-env33-c): the command is constant, nothing from outside reaches the shell
    [[maybe_unused]] const int ignored = std::system("touch /tmp/EV3");
    const bool started = m_coapProcess.launch(kProcessStartTimeoutMs);
    BRISCA_NOTIC(logNode, "Coap started: %s", toText(started));
    if (!started) {
        BRISCA_ERROR(logNode, "Fail to start the CoAP aaplication.");
        // Deliberate: the failed entry switches once more.
        m_stateManager.switchState(ERROR);
    }
    return started;
}

bool FirmwareState::startBle()
{
    const bool started = m_bluetoothManager->start();
    BRISCA_NOTIC(logNode, "Bluetooth started: %s", toText(started));
    return started;
}

void FirmwareState::failEntry()
{
    BRISCA_ERROR(logNode, "Error during launching of the firmware.");
    m_stateManager.switchState(ERROR);
}

void FirmwareState::onExit()
{
    m_bootloader.close();
    if (m_coapProcess.killIfRunning())
        BRISCA_NOTIC(logNode, "coAp killed");
    m_bluetoothManager->stop();
    // The serial line goes now, not with the next reset pulse: no command may fall into the console that the
    // pulse starts, and ERROR, which resets nothing, must leave the line to the bootloader client.
    m_bluetoothManager->resetBleStartedFlag();
}

void FirmwareState::restart()
{
    m_stateManager.switchState(FIRMWARE);
}

void FirmwareState::recover()
{
    // A request may have come first: then the chip has been reset since.
    if (m_stateManager.getCurrentState() != FIRMWARE || !m_bluetoothManager->chipSilentSince())
        return;
    BRISCA_NOTIC(logNode, "The chip is silent, FIRMWARE is entered anew");
    restart();
    if (m_stateManager.getCurrentState() == ERROR)
        BRISCA_WARN(
            logNode,
            "The chip did not come back. Nobody is served until BriscaRestart and startFirmwareApp are "
            "requested");
}

void FirmwareState::disable()
{
    if (m_stateManager.getCurrentState() == FIRMWARE)
        m_stateManager.switchState(DISABLED);
}

QString FirmwareState::getBleMacAddress()
{
    return accepts(FIRMWARE, m_stateManager, logNode, "getBleMacAddress")
               ? m_bluetoothManager->getBleMacAddress()
               : QString();
}

void FirmwareState::forceDeviceDisconnection()
{
    if (accepts(FIRMWARE, m_stateManager, logNode, "forceDeviceDisconnection"))
        m_bluetoothManager->disconnectDevice();
}
