// What takes the service from one state to another, and the short requests within one.
#include "Transitions.h"
#include "CommandLine.h"
#include "Failure.h"
#include "Station.h"

#include <optional>

namespace {
constexpr int kLongestName = 29;

void tell(const Command& command, BriscaState state)
{
    command.report.note({{"state", name(state)}}, name(state));
}

[[noreturn]] void failTransition(const Station& station, BriscaState wanted, BriscaState current)
{
    throw Failure{Exit::Failed, QString("the service is in %1 instead of %2; see journalctl -u brisca")
                                    .arg(station.unit().statusText().value_or(name(current)), name(wanted))};
}

/// One arrow of the diagram of states; there is nothing to do for a service that is at its end already.
void follow(Command& command, BriscaState from, void (BriscaProxy::*request)(), BriscaState to)
{
    Station station(command);
    if (station.state() != to) {
        station.require(from);
        if (const BriscaState reached = station.sendAndWait(request); reached != to)
            failTransition(station, to, reached);
    }
    tell(command, to);
}

std::optional<BriscaState> stateToWaitFor(const Command& command)
{
    if (!command.line.isSet("wait"))
        return std::nullopt;
    const QString wanted = command.line.value("wait").toUpper();
    for (const BriscaState state : {BOOTLOADER, FIRMWARE, DISABLED, ERROR})
        if (wanted == name(state))
            return state;
    throw Failure{Exit::Usage, "--wait takes BOOTLOADER, FIRMWARE, DISABLED or ERROR"};
}
}  // namespace

void checkName(const QString& name)
{
    const auto bytes = name.toUtf8().size();
    if (bytes < 1 || bytes > kLongestName)
        throw Failure{
            Exit::Usage,
            QString("a BLE name has 1 to %1 bytes of UTF-8, this one has %2").arg(kLongestName).arg(bytes)};
}

void setName(Station& station, const QString& name)
{
    station.ask([&name](BriscaProxy& proxy) { return proxy.changeBleName(name); });
}

void start(Command& command)
{
    follow(command, BOOTLOADER, &BriscaProxy::startFirmwareApp, FIRMWARE);
}

void enable(Command& command)
{
    follow(command, DISABLED, &BriscaProxy::enableBluetooth, FIRMWARE);
}

void disable(Command& command)
{
    follow(command, FIRMWARE, &BriscaProxy::disableBluetooth, DISABLED);
}

void restart(Command& command)
{
    const auto awaited = stateToWaitFor(command);
    Station station(command);
    const BriscaState usual = station.state() == FIRMWARE ? FIRMWARE : BOOTLOADER;
    const BriscaState wanted = awaited.value_or(usual);
    BriscaState reached = station.sendAndWait(&BriscaProxy::BriscaRestart);
    // Another client may take it on from there.
    if (awaited && reached != wanted && reached != ERROR)
        station.waitUntil([&] {
            reached = station.state();
            return reached == wanted || reached == ERROR;
        });
    if (reached != wanted)
        failTransition(station, wanted, reached);
    tell(command, reached);
}

void rename(Command& command)
{
    checkName(command.argument);
    Station station(command);
    station.require(BOOTLOADER);
    setName(station, command.argument);
    command.report.note({{"name", command.argument}},
                        command.argument + " is on the air from the next start of the firmware");
}

void disconnectPhone(Command& command)
{
    Station station(command);
    station.require(FIRMWARE);
    (void)station.send(&BriscaProxy::disconnectBleDevice);
    command.report.note({{"disconnected", true}}, "the phone is dropped, if there was one");
}
