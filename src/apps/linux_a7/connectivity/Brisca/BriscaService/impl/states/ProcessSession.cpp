#include "ProcessSession.h"

#include <QDir>
#include <QFile>
#include <QSet>

#include <csignal>

namespace {
// A process that has been sent SIGKILL forks no more, so that few looks find a new one.
constexpr int kMaxLooks = 100;

/// The session of a living process; 0 when it has ended, also as a zombie.
pid_t sessionOf(const QString& pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    // "pid (name) state parent group session ...", and the name may hold anything.
    const QByteArray stat = file.readAll();
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    const bool ended = fields.size() < 4 || fields[0] == "Z" || fields[0] == "X";
    return ended ? 0 : fields[3].toInt();
}

QSet<pid_t> membersOf(pid_t session)
{
    QSet<pid_t> members;
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        const pid_t pid = entry.toInt();
        if (pid > 0 && sessionOf(entry) == session)
            members.insert(pid);
    }
    return members;
}
}  // namespace

bool sessionLives(pid_t session)
{
    return !membersOf(session).isEmpty();
}

unsigned killSession(pid_t session)
{
    if (session <= 0)
        return 0;
    QSet<pid_t> killed;
    for (int look = 0; look < kMaxLooks; ++look) {
        const QSet<pid_t> found = membersOf(session) - killed;
        if (found.isEmpty())
            break;
        for (const pid_t pid : found)
            (void)::kill(pid, SIGKILL);
        killed += found;
    }
    return static_cast<unsigned>(killed.size());
}
