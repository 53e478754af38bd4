#pragma once

#include <QString>
#include <QStringList>

/// Runs the service's program as a command that touches nothing: the one that was installed with this tool.
/// Never the one behind the process on the bus, whose choice that would be, with root's rights.
/// @return what it printed; throws a Failure when it cannot be run
[[nodiscard]] QString runServiceProgram(const QStringList& arguments);
