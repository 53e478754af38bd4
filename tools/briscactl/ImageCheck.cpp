#include "ImageCheck.h"

#include "Failure.h"
#include "Station.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {
Failure refused(const QString& path, const QString& reason)
{
    return {Exit::FileRefused, path + ": " + reason};
}

std::vector<gid_t> groupsOf(uid_t user)
{
    std::vector<gid_t> groups(NGROUPS_MAX);
    const passwd* const entry = ::getpwuid(user);
    int count = static_cast<int>(groups.size());
    if (entry == nullptr || ::getgrouplist(entry->pw_name, entry->pw_gid, groups.data(), &count) < 0)
        count = 0;
    groups.resize(static_cast<std::size_t>(count));
    return groups;
}

QString userName(uid_t user)
{
    const passwd* const entry = ::getpwuid(user);
    return entry == nullptr ? QString::number(user) : QString::fromUtf8(entry->pw_name);
}

/// @param permission one of the bits of "others"
bool permits(const std::string& path, mode_t permission, uid_t user, const std::vector<gid_t>& groups)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0)
        return true;  // what this caller cannot see is the service's to judge
    if (status.st_uid == user)
        permission <<= 6;
    else if (std::ranges::find(groups, status.st_gid) != groups.end())
        permission <<= 3;
    return (status.st_mode & permission) != 0;
}

/// The part of the path that keeps the user out; empty when none does.
std::string obstacle(const std::string& path, uid_t user)
{
    const auto groups = groupsOf(user);
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
        if (!permits(path.substr(0, slash), S_IXOTH, user, groups))
            return path.substr(0, slash);
    return permits(path, S_IROTH, user, groups) ? "" : path;
}
}  // namespace

QString checkedImage(const QString& path)
{
    const std::unique_ptr<char, void (*)(void*)> resolved(::realpath(path.toUtf8().constData(), nullptr),
                                                          std::free);
    struct stat status = {};
    if (resolved == nullptr || ::stat(resolved.get(), &status) != 0)
        throw refused(path, std::strerror(errno));
    if (!S_ISREG(status.st_mode))
        throw refused(path, "it is no regular file");
    if (status.st_size == 0)
        throw refused(path, "it is empty");
    return QString::fromUtf8(resolved.get());
}

void checkAccess(const QString& path, const Station& station)
{
    for (const QString& hidden : station.unit().hiddenDirectories())
        if (path.startsWith(hidden + "/"))
            throw refused(path,
                          QString("the service's unit does not see %1: copy it to /evse/data").arg(hidden));
    const uid_t user = station.user();
    if (const std::string wall = user == 0 ? "" : obstacle(path.toStdString(), user); !wall.empty())
        throw refused(path, QString("the service's user %1 may not read %2: chmod o+%3 it")
                                .arg(userName(user), QString::fromStdString(wall),
                                     wall == path.toStdString() ? "r" : "x"));
}
