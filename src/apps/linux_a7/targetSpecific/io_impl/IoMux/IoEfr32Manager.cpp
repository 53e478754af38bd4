#include "IoEfr32Manager.h"

#include "BluetoothManager.h"
#include "OutputPinI.h"
#include "facade/Log.h"

#include <chrono>
#include <thread>

// Never written to; the configuration and the tree print know the name.
[[maybe_unused]] BRISCA_LOG_NODE(logNode, "BriscaService.io.IoEfr32Manager");

namespace {
constexpr std::chrono::milliseconds kResetPulseMs{100};
}  // namespace

IoEfr32Manager::IoEfr32Manager(OutputPinI& pin) : m_pin(pin) {}

void IoEfr32Manager::resetEfr32(bool holdInReset)
{
    m_pin.setLow();
    if (!holdInReset) {
        // Goes on sleeping after a signal: the CoAP application's SIGCHLD arrives at just this moment of a
        // restart and would cut the pulse short.
        std::this_thread::sleep_for(kResetPulseMs);
        m_pin.setHigh();
    }
    BluetoothManager::instance().resetBleStartedFlag();
}
