#pragma once

#include "An760.h"
#include "BootloaderState.h"
#include "BriscaDbus.h"
#include "BriscaStateManager.h"
#include "DisabledState.h"
#include "ErrorState.h"
#include "FirmwareState.h"
#include "IoEfr32Manager.h"
#include "LinuxOutputPin.h"
#include "StatusLine.h"
#include "SystemBus.h"
#include "Systemd.h"

#include <QObject>

/// Builds, owns and wires every long-lived object of the service. Main thread only.
class BriscaService : public QObject
{
    Q_OBJECT

public:
    /// Builds the objects and names the UART of the BLE stack; touches neither devices nor bus.
    explicit BriscaService(QObject* parent);
    ~BriscaService() override = default;

    /// Exports the interface on the system bus, which may take SystemBus::kStartLimit, and registers the
    /// states. A bus or a name that cannot be had is no error: the service then runs unreachable until it has
    /// both.
    void init();
    /// Enters BOOTLOADER; returns when that entry has finished, whatever its outcome.
    void start();
    /// Tells systemd that the service is ready, and from now on that it is well, see Systemd.
    void tellReady();

private:
    [[nodiscard]] std::vector<Systemd::Vital> vitals() const;

    // In the order of construction; destroyed in reverse.
    BriscaStateManager m_stateManager;
    LinuxOutputPin m_resetPin;
    IoEfr32Manager m_ioEfr32Manager;
    An760 m_bootloader;
    BootloaderState m_bootloaderState;
    FirmwareState m_firmwareState;
    DisabledState m_disabledState;
    ErrorState m_errorState;
    BriscaDbus m_dbus;
    SystemBus m_systemBus;
    Systemd m_systemd;
    StatusLine m_statusLine;
};
