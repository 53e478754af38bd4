// What is asked without changing anything.
#include "CommandLine.h"
#include "Failure.h"
#include "ServiceProgram.h"
#include "Station.h"

#include <chrono>

namespace {
constexpr const char* kUpdating = "firmware update: ";
constexpr const char* kSilent = "FIRMWARE: the chip has not answered";
constexpr const char* kOffAir = "FIRMWARE: not on the air";
constexpr std::chrono::seconds kAdvertisingLimit{12};  // the service itself mends it after 10 s

QString firmwareText(Station& station)
{
    return station.ask([](BriscaProxy& proxy) { return proxy.getFirmwareVersion(); });
}

/// Empty only when the chip stays silent: one response that comes late is lost for the service.
QString macAddress(Station& station)
{
    constexpr std::chrono::seconds kLimit{2};
    QString mac;
    (void)Station::waitUntil(
        [&] {
            mac = station.ask([](BriscaProxy& proxy) { return proxy.getMacAddress(); });
            return !mac.isEmpty();
        },
        QDeadlineTimer(kLimit));
    return mac;
}

/// The first line that says something: the chip's menu begins with empty ones.
QString firstLine(const QString& text)
{
    for (const QString& line : text.split(QLatin1Char('\n')))
        if (!line.trimmed().isEmpty())
            return line.trimmed();
    return {};
}

/// The line of the version, without which the rest of the status is still worth showing.
QString version()
{
    try {
        return runServiceProgram({"--version"}).trimmed();
    } catch (const Failure&) {
        return {};
    }
}

/// Prints the rows whose value is known, one a line, or all in one object.
void printRows(const Report& report, const QList<QPair<QString, QString>>& rows)
{
    QJsonObject object;
    QString text;
    for (const auto& [key, value] : rows) {
        if (value.isEmpty())
            continue;
        object[key] = value;
        text += QString("%1 %2\n").arg((key + ":").leftJustified(9), value);
    }
    report.result(object, text.trimmed());
}

struct Health
{
    Exit code;
    QString reason;
};

Health healthInFirmware(Station& station, QString status)
{
    (void)Station::waitUntil(
        [&] {
            status = station.unit().statusText().value_or(status);
            // The service tells a change up to a quarter of a second later.
            return status.startsWith(name(FIRMWARE)) && !status.startsWith(kOffAir);
        },
        QDeadlineTimer(kAdvertisingLimit));
    if (status.startsWith(kSilent) || status.startsWith(kOffAir))
        return {Exit::Failed, status};
    if (macAddress(station).isEmpty())
        return {Exit::Failed, "FIRMWARE: the chip does not answer, the service resets it after a minute"};
    return {Exit::Done, status};
}

Health health(Station& station, BriscaState state, const QString& status)
{
    switch (state) {
        case FIRMWARE:
            return healthInFirmware(station, status);
        case DISABLED:
            return {Exit::Done, name(state)};  // somebody wants it so
        case BOOTLOADER:
            if (status.startsWith(kUpdating))
                return {Exit::Done, status};
            return {Exit::WrongState, "BOOTLOADER: not on the air, briscactl start brings it there"};
        case ERROR:
        case DEFAULT:
            break;
    }
    return {Exit::Failed, status + "; see journalctl -u brisca, then briscactl restart"};
}
}  // namespace

void showStatus(Command& command)
{
    Station station(command);
    const BriscaState state = station.state();
    const QString status = station.unit().statusText().value_or(QString());
    const bool consoleIsFree = state == BOOTLOADER && !status.startsWith(kUpdating);
    printRows(command.report, {{"state", name(state)},
                               {"status", status},
                               {"service", version()},
                               {"firmware", consoleIsFree ? firstLine(firmwareText(station)) : QString()},
                               {"mac", state == FIRMWARE ? macAddress(station) : QString()}});
}

void showFirmware(Command& command)
{
    Station station(command);
    station.require(BOOTLOADER);
    const QString text = firmwareText(station);
    if (text.isEmpty())
        throw Failure{Exit::Failed,
                      "the chip's console gives no text: wait for the end of an update, or "
                      "briscactl restart"};
    command.report.result({{"firmware", text}}, text);
}

void showMac(Command& command)
{
    Station station(command);
    station.require(FIRMWARE);
    const QString mac = macAddress(station);
    if (mac.isEmpty())
        throw Failure{Exit::Failed, "the chip does not answer: see briscactl status, then briscactl restart"};
    command.report.result({{"mac", mac}}, mac);
}

void showHealth(Command& command)
{
    Station station(command);
    const BriscaState state = station.state();
    const auto [code, reason] = health(station, state, station.unit().statusText().value_or(name(state)));
    const bool isHealthy = code == Exit::Done;
    if (isHealthy || command.report.isJson())
        command.report.note({{"healthy", isHealthy}, {"state", name(state)}, {"reason", reason}}, reason);
    if (!isHealthy)
        throw Failure{code, reason};
}
