// The requests themselves are tested over a real bus, with the whole service.
#include "BluetoothManager.h"
#include "BootloaderState.h"
#include "BriscaDbus.h"
#include "DisabledState.h"
#include "ErrorState.h"
#include "Fakes.h"
#include "FirmwareState.h"
#include "ServiceAdaptor.h"

#include <QCoreApplication>

namespace {
TEST(Bus, RelaysEveryNotificationInOrderFromWhicheverThread)
{
    int argc = 0;
    const QCoreApplication application(argc, nullptr);
    Calls relayed;
    FakeResetLine resetLine(relayed);
    FakeBootloader console(relayed);
    BriscaStateManager manager;
    BootloaderState bootloader(manager, resetLine, console);
    FirmwareState firmware(manager, resetLine, console);
    DisabledState disabled(manager, resetLine);
    ErrorState error(manager);
    BriscaDbus dbus(manager, bootloader, firmware, disabled, error, nullptr);
    const ServiceAdaptor adaptor(&dbus);
    dbus.init();
    const auto note = [&relayed](const char* name) {
        return [&relayed, name] { relayed.emplace_back(name); };
    };
    QObject::connect(&adaptor, &ServiceAdaptor::bleIsStarted, note("started"));
    QObject::connect(&adaptor, &ServiceAdaptor::btDeviceConnected, note("connected"));
    QObject::connect(&adaptor, &ServiceAdaptor::btDeviceDisconnected, note("disconnected"));
    QObject::connect(&adaptor, &ServiceAdaptor::communicationError, note("communication error"));
    QObject::connect(&adaptor, &ServiceAdaptor::fwUpdateComplete,
                     [&relayed](bool success) { relayed.emplace_back(success ? "updated" : "not updated"); });
    Q_EMIT console.fwUpdateCompleteStatus(true);
    Q_EMIT console.fwUpdateCompleteStatus(false);
    std::thread([] {
        BluetoothManager& bluetooth = BluetoothManager::instance();
        Q_EMIT bluetooth.bleIsStarted();
        Q_EMIT bluetooth.newDeviceConnected();
        Q_EMIT bluetooth.deviceDisconnected();
        Q_EMIT bluetooth.communicationError();
    }).join();
    EXPECT_TRUE(waitUntil([&] {
        QCoreApplication::processEvents();
        return relayed.size() >= 6;
    }));
    EXPECT_THAT(relayed, ElementsAre("updated", "not updated", "started", "connected", "disconnected",
                                     "communication error"));
}
}  // namespace
