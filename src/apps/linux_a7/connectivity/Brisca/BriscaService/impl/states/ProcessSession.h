#pragma once

#include <sys/types.h>

/// Whether a process of the session has not ended yet.
[[nodiscard]] bool sessionLives(pid_t session);

/// Kills the living processes of a session (SIGKILL), whatever process group they are in, those included that
/// are forked meanwhile; does not wait for their ends. What has left the session for one of its own is not
/// found.
/// @param session its id, which is its leader's process id; 0 is none
/// @return how many processes were killed
unsigned killSession(pid_t session);
