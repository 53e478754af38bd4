#pragma once

#include <QString>

class Station;

/// Looks at a firmware file before the service is disturbed for it: a regular file with something in it.
/// @return its absolute path without symbolic links; throws a Failure FileRefused
[[nodiscard]] QString checkedImage(const QString& path);

/// Whether the user of the service may read the file and its unit sees it; throws a Failure FileRefused.
void checkAccess(const QString& path, const Station& station);
