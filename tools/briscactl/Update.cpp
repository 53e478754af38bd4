// A firmware update, from the file to the station on the air.
#include "CommandLine.h"
#include "Failure.h"
#include "ImageCheck.h"
#include "Station.h"
#include "Transitions.h"

#include <QRegularExpression>

#include <unistd.h>

#include <cstdio>
#include <optional>

namespace {
using namespace std::chrono_literals;

constexpr const char* kProgress = "^firmware update: (\\d+) %";

/// Nobody but systemd knows whether one is connected.
bool mayHavePhone(const std::optional<QString>& status)
{
    return !status || status->contains("phone");
}

bool agrees()
{
    (void)std::fputs("A phone may be connected and would be dropped. Go on? [y/N] ", stderr);
    const int answer = std::getchar();
    return answer == 'y' || answer == 'Y';
}

void askForThePhone(const Command& command, const std::optional<QString>& status)
{
    if (command.line.isSet("yes") || !mayHavePhone(status))
        return;
    if (::isatty(STDIN_FILENO) != 1 || !agrees())
        throw Failure{Exit::WrongState, "a phone may be connected: say --yes to drop it"};
}

/// The service restarts into FIRMWARE from FIRMWARE, so the way leads through DISABLED.
void enterBootloader(Station& station, const Command& command)
{
    const auto status = station.unit().statusText();
    BriscaState state = station.state();
    if (state == BOOTLOADER && status && QRegularExpression(kProgress).match(*status).hasMatch())
        throw Failure{Exit::WrongState, "an update is running already: briscactl monitor shows its end"};
    if (state == FIRMWARE) {
        askForThePhone(command, status);
        state = station.send(&BriscaProxy::disableBluetooth);
    }
    if (state != BOOTLOADER && station.send(&BriscaProxy::BriscaRestart) != BOOTLOADER)
        throw Failure{Exit::Failed,
                      "the chip's bootloader does not answer, nothing was sent; see "
                      "journalctl -u brisca"};
}

QRegularExpressionMatch progressOf(const Unit& unit)
{
    return QRegularExpression(kProgress).match(unit.statusText().value_or(QString()));
}

void showProgress(const Unit& unit, Report& report)
{
    const auto match = progressOf(unit);
    if (match.hasMatch())
        report.progress(match.captured(1).toInt());
}

/// The signal and the status go different ways, so the status may come a little later.
QString reasonOfFailure(const Unit& unit)
{
    static const QRegularExpression pattern("firmware update failed.*");
    QString reason = "the firmware update failed";
    (void)Station::waitUntil(
        [&] {
            const auto match = pattern.match(unit.statusText().value_or(QString()));
            if (match.hasMatch())
                reason = match.captured();
            return match.hasMatch();
        },
        QDeadlineTimer(1s));
    return reason;
}

/// @return the value of the signal; throws a Failure when the service has ended
bool upload(Station& station, const QString& path, Report& report)
{
    std::optional<bool> outcome;
    QObject receiver;
    QObject::connect(&station.proxy(), &BriscaProxy::fwUpdateComplete, &receiver,
                     [&outcome](bool isSuccess) { outcome = isSuccess; });
    const Unit unit = station.unit();
    if (!station.ask([&path](BriscaProxy& proxy) { return proxy.startFirmwareUpdate(path); }))
        throw Failure{Exit::FileRefused, path + ": the service refuses it; see journalctl -u brisca"};
    station.waitUntil([&] {
        showProgress(unit, report);
        return outcome || !station.isThere();
    });
    report.endProgress();
    if (!outcome)
        throw Failure{Exit::Failed,
                      "the service has ended during the update: see journalctl -u brisca, then "
                      "start the update again"};
    // The status follows the signal; until then whoever asks next would see an update that runs.
    (void)Station::waitUntil([&unit] { return !progressOf(unit).hasMatch(); }, QDeadlineTimer(1s));
    return *outcome;
}

/// The chip's console may still wait for the rest; a reset brings it back.
[[noreturn]] void recover(Station& station)
{
    const QString reason = reasonOfFailure(station.unit());
    const bool isBack = station.send(&BriscaProxy::BriscaRestart) == BOOTLOADER;
    throw Failure{Exit::Failed, reason + (isBack ? "; the bootloader is ready for another try"
                                                 : "; and the bootloader does not answer any more")};
}
}  // namespace

void update(Command& command)
{
    const QString path = checkedImage(command.argument);
    const QString bleName = command.line.value("name");
    if (command.line.isSet("name"))
        checkName(bleName);
    Station station(command);
    (void)station.state();  // who may not ask is told so, whatever the file
    checkAccess(path, station);
    enterBootloader(station, command);
    if (!upload(station, path, command.report))
        recover(station);
    if (!bleName.isEmpty())
        setName(station, bleName);
    BriscaState state = BOOTLOADER;
    if (command.line.isSet("start")) {
        state = station.sendAndWait(&BriscaProxy::startFirmwareApp);
        if (state != FIRMWARE)
            throw Failure{Exit::Failed,
                          "the update is done, but the firmware did not start: the service is in " +
                              name(state) + "; see journalctl -u brisca"};
    }
    command.report.note({{"updated", path}, {"state", name(state)}}, "firmware update done, " + name(state));
}
