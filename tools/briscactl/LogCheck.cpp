#include "CommandLine.h"
#include "Failure.h"
#include "ServiceProgram.h"

#include <QFile>
#include <QJsonArray>

void checkLog(Command& command)
{
    const QString path = command.argument.isEmpty() ? "/evse/data/log.cfg" : command.argument;
    if (QFile file(path); !file.open(QIODevice::ReadOnly))
        throw Failure{Exit::FileRefused, path + ": " + file.errorString()};
    // The service's own reader and the names of its own modules: no second list can be out of date.
    const QStringList findings =
        runServiceProgram({"--check-log", path}).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    const QString text =
        findings.isEmpty() ? path + ": every line is used" : findings.join(QLatin1Char('\n'));
    const QJsonObject object = {{"file", path}, {"findings", QJsonArray::fromStringList(findings)}};
    if (findings.isEmpty()) {
        command.report.note(object, text);
        return;
    }
    command.report.result(object, text);
    throw Failure{Exit::Failed,
                  QString("%1: %2 to correct, then systemctl restart brisca").arg(path).arg(findings.size())};
}
