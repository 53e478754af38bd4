#include "BluetoothManager.h"
#include "BootloaderState.h"
#include "BriscaDbus.h"
#include "DisabledState.h"
#include "ErrorState.h"
#include "Fakes.h"
#include "FirmwareState.h"
#include "ServiceAdaptor.h"
#include "StdoutCapture.h"
#include "TempDir.h"
#include "Wait.h"
#include "facade/LogFacade.h"

#include <QCoreApplication>
#include <QMetaMethod>

#include <thread>

namespace {
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

/// The object with its states, called through the adaptor as the bus calls it. The states are not registered
/// as handlers: a transition is made, but no entry runs.
class Bus : public testing::Test
{
protected:
    Bus()
    {
        LogFacade::setLevel("BriscaService.comm.BriscaDbus", LogLevel::Debug);
        dbus.init();
    }
    template <class... Arguments>
    bool call(const std::string& method, Arguments... arguments)
    {
        return QMetaObject::invokeMethod(&adaptor, method.c_str(), arguments...);
    }
    /// Calls a method with whatever it takes; true when its result, if it has one, is neutral.
    bool isNeutral(const std::string& method)
    {
        QString text;
        bool flag = false;
        if (method == "startFirmwareUpdate")
            return call(method, Q_RETURN_ARG(bool, flag), Q_ARG(QString, QStringLiteral("/etc/passwd"))) &&
                   !flag;
        if (method == "changeBleName")
            return call(method, Q_ARG(QString, QStringLiteral("Refused")));
        if (method == "getFirmwareVersion" || method == "getMacAddress")
            return call(method, Q_RETURN_ARG(QString, text)) && text.isEmpty();
        return call(method);
    }

    int argc = 0;
    QCoreApplication application{argc, nullptr};
    Calls calls;
    FakeResetLine resetLine{calls};
    FakeBootloader console{calls};
    BriscaStateManager manager;
    BootloaderState bootloader{manager, resetLine, console};
    FirmwareState firmware{manager, resetLine, console};
    DisabledState disabled{manager, resetLine};
    ErrorState error{manager};
    BriscaDbus dbus{manager, bootloader, firmware, disabled, error, nullptr};
    ServiceAdaptor adaptor{&dbus};
    testsupport::StdoutCapture log;
};

constexpr BriscaState kStates[] = {BOOTLOADER, FIRMWARE, DISABLED, ERROR};

struct Request
{
    const char* method;
    const char* line;
    BriscaState acceptedIn;
    const char* refusal;  ///< null: refused in silence
};
void PrintTo(const Request& row, std::ostream* out)
{
    *out << row.method;
}
class BusRequest : public Bus, public testing::WithParamInterface<Request>
{
};

TEST_P(BusRequest, OutsideItsStateIsRefusedWithANeutralResult)
{
    const Request& row = GetParam();
    Calls expected = {std::string("<DEBUG> [BriscaService.comm.BriscaDbus] Brisca service: ") + row.line};
    if (row.refusal != nullptr)
        expected.push_back(std::string("<WARN > [BriscaService.states.") + row.refusal +
                           " - Wrong state for this request.");
    for (const BriscaState state : kStates) {
        if (state == row.acceptedIn)
            continue;
        manager.switchState(state);
        log.clear();
        EXPECT_TRUE(isNeutral(row.method)) << "in " << to_string(state);
        EXPECT_THAT(log.logLines(), ElementsAreArray(expected)) << "in " << to_string(state);
        EXPECT_EQ(manager.getCurrentState(), state);
    }
    EXPECT_TRUE(calls.empty());
    EXPECT_NE(BluetoothManager::instance().getBleName(), QStringLiteral("Refused"));
}

INSTANTIATE_TEST_SUITE_P(
    Requests, BusRequest,
    testing::Values(
        Request{"getFirmwareVersion", "Get firemware version", BOOTLOADER, "BootloaderState] getFwVersion"},
        Request{"changeBleName", "Set BLE name", BOOTLOADER, "BootloaderState] setBleName"},
        Request{"startFirmwareUpdate", "Start firmware update", BOOTLOADER, "BootloaderState] startFwUpdate"},
        Request{"startFirmwareApp", "Start firmware", BOOTLOADER, "BootloaderState] startFirmware"},
        Request{"getMacAddress", "Get BLE mac address", FIRMWARE, "FirmwareState] getBleMacAddress"},
        Request{"disconnectBleDevice", "disconnect device", FIRMWARE,
                "FirmwareState] forceDeviceDisconnection"},
        Request{"disableBluetooth", "Disable Bluetooth", FIRMWARE, nullptr},
        Request{"enableBluetooth", "Enable Bluetooth", DISABLED, nullptr}));

TEST_F(Bus, ReadsTheStateInEveryState)
{
    int value = -1;
    ASSERT_TRUE(call("getBriscaState", Q_RETURN_ARG(int, value)));
    EXPECT_EQ(value, 0) << "before the first transition";
    for (const BriscaState state : kStates) {
        manager.switchState(state);
        ASSERT_TRUE(call("getBriscaState", Q_RETURN_ARG(int, value)));
        EXPECT_EQ(value, static_cast<int>(state));
    }
    EXPECT_TRUE(log.contains("<DEBUG> [BriscaService.comm.BriscaDbus] Brisca service: Get state request"));
}

struct Transition
{
    const char* method;
    BriscaState from;
    BriscaState to;
};
void PrintTo(const Transition& row, std::ostream* out)
{
    *out << row.method << " in " << to_string(row.from);
}
class BusTransition : public Bus, public testing::WithParamInterface<Transition>
{
};

TEST_P(BusTransition, IsMade)
{
    const auto& [method, from, to] = GetParam();
    manager.switchState(from);
    log.clear();
    ASSERT_TRUE(call(method));
    EXPECT_EQ(manager.getCurrentState(), to);
    EXPECT_THAT(log.logLines(), ElementsAre(HasSubstr("Brisca service: "),
                                            HasSubstr("switch from " + to_string(from) + " state to " +
                                                      to_string(to) + " state")));
}

INSTANTIATE_TEST_SUITE_P(Requests, BusTransition,
                         testing::Values(Transition{"startFirmwareApp", BOOTLOADER, FIRMWARE},
                                         Transition{"disableBluetooth", FIRMWARE, DISABLED},
                                         Transition{"enableBluetooth", DISABLED, FIRMWARE},
                                         Transition{"BriscaRestart", FIRMWARE, FIRMWARE},
                                         Transition{"BriscaRestart", BOOTLOADER, BOOTLOADER},
                                         Transition{"BriscaRestart", DISABLED, BOOTLOADER},
                                         Transition{"BriscaRestart", ERROR, BOOTLOADER}));

TEST_F(Bus, ServesTheBootloaderRequestsInBootloader)
{
    const testsupport::TempDir directory;
    const QString image = QString::fromStdString(directory.write("image.gbl", "firmware"));
    manager.switchState(BOOTLOADER);
    QString version;
    bool started = false;
    ASSERT_TRUE(call("getFirmwareVersion", Q_RETURN_ARG(QString, version)));
    EXPECT_EQ(version, console.versionText);
    ASSERT_TRUE(call("startFirmwareUpdate", Q_RETURN_ARG(bool, started), Q_ARG(QString, image)));
    EXPECT_TRUE(started);
    EXPECT_THAT(calls, ElementsAre("update from " + image.toStdString()));
    ASSERT_TRUE(call("changeBleName", Q_ARG(QString, QStringLiteral("Gärage"))));
    EXPECT_EQ(BluetoothManager::instance().getBleName(), QStringLiteral("Gärage"));
}

TEST_F(Bus, RelaysEveryNotificationInOrderFromWhicheverThread)
{
    Calls relayed;
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
    EXPECT_TRUE(testsupport::waitUntil([&] {
        QCoreApplication::processEvents();
        return relayed.size() >= 6;
    }));
    EXPECT_THAT(relayed, ElementsAre("updated", "not updated", "started", "connected", "disconnected",
                                     "communication error"));
    const std::string head = "<DEBUG> [BriscaService.comm.BriscaDbus] ";
    EXPECT_THAT(
        log.logLines(),
        ElementsAre(head + "Signal Fw update success sent", head + "Signal Fw update failed sent",
                    head + "BLE Device started signal sent", head + "BLE Device connected signal sent",
                    head + "BLE Device disconnected signal sent", head + "Communication error signal sent"));
}

TEST(Adaptor, ShowsTheInterfaceThatIsInstalledForClients)
{
    const QMetaObject& meta = ServiceAdaptor::staticMetaObject;
    const std::string text = meta.classInfo(meta.indexOfClassInfo("D-Bus Introspection")).value();
    EXPECT_STREQ(meta.classInfo(meta.indexOfClassInfo("D-Bus Interface")).value(), "brisca.service");
    EXPECT_EQ(text.rfind("  <interface name=\"brisca.service\">\n", 0), 0U);
    EXPECT_THAT(testsupport::readFile(INSTALLED_INTERFACE), HasSubstr(">\n" + text + "</node>"));
    for (int index = meta.methodOffset(); index < meta.methodCount(); ++index) {
        const QMetaMethod method = meta.method(index);
        const std::string name = method.name().toStdString();
        const std::string annotated =
            "<method name=\"" + name +
            "\">\n      <annotation value=\"true\" name=\"org.freedesktop.DBus.Method.NoReply\"/>";
        EXPECT_EQ(text.find(annotated) != std::string::npos, method.tag() == std::string("Q_NOREPLY"))
            << name;
    }
}
}  // namespace
