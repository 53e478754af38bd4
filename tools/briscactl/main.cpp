#include "CommandLine.h"
#include "Failure.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    QStringList words;
    for (int index = 0; index < argc; ++index)
        words += QString::fromUtf8(argv[index]);  // whatever the locale: a cron job has none
    try {
        runCommandLine(words);
        return static_cast<int>(std::fflush(stdout) == 0 ? Exit::Done : Exit::Failed);
    } catch (const Failure& failure) {
        (void)std::fflush(stdout);
        (void)std::fprintf(stderr, "briscactl: %s\n", Report::harmless(failure.text).toUtf8().constData());
        return static_cast<int>(failure.code);
    }
}
