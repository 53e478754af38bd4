#pragma once

#include "BriscaStateManagerI.h"
#include "facade/Log.h"

/// Whether @p state is the current one; otherwise the request is refused with one WARN line of @p node.
[[nodiscard]] inline bool accepts(BriscaState state, BriscaStateManagerI& manager, LogNode* node,
                                  const char* request)
{
    if (manager.getCurrentState() == state)
        return true;
    BRISCA_WARN(node, "%s - Wrong state for this request.", request);
    return false;
}
