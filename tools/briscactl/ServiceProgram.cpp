#include "ServiceProgram.h"

#include "Failure.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

namespace {
constexpr int kLimitMs = 5000;

QString path()
{
    const QDir here(QCoreApplication::applicationDirPath());
    for (const char* const place : {"../libexec/brisca/BriscaService", "BriscaService"})
        if (const QFileInfo program(here, place); program.isExecutable())
            return program.filePath();
    throw Failure{Exit::Failed, "the program of the service is not installed beside this one"};
}
}  // namespace

QString runServiceProgram(const QStringList& arguments)
{
    QProcess process;
    process.start(path(), arguments, QIODevice::ReadOnly);
    if (!process.waitForFinished(kLimitMs) || process.exitStatus() != QProcess::NormalExit)
        throw Failure{Exit::Failed, process.program() + ": " + process.errorString()};
    return QString::fromUtf8(process.readAllStandardOutput());
}
