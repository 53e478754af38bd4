#pragma once

#include "facade/LogEvent.h"
#include "facade/LogFacade.h"

// The log statements of every module. A translation unit makes its node once at file scope:
//
//     BRISCA_LOG_NODE(logNode, "BriscaService.comm.An760");
//     ...
//     BRISCA_ERROR(logNode, "Unable to access GPIO %s", path);
//
// A statement whose level the node does not pass costs one comparison; its arguments are not evaluated.

#define BRISCA_LOG_NODE(variable, name) \
    static LogNode* const variable = LogFacade::inst().findOrCreateNode(name, -1)

#define BRISCA_LOG(node, severity, ...)                                             \
    do {                                                                            \
        if ((node)->passes(severity))                                               \
            log_event(*(node), severity, __FILE__, __LINE__, nullptr, __VA_ARGS__); \
    } while (false)

#define BRISCA_FATAL(node, ...) BRISCA_LOG(node, LogLevel::Fatal, __VA_ARGS__)
#define BRISCA_CRIT(node, ...) BRISCA_LOG(node, LogLevel::Crit, __VA_ARGS__)
#define BRISCA_ERROR(node, ...) BRISCA_LOG(node, LogLevel::Error, __VA_ARGS__)
#define BRISCA_WARN(node, ...) BRISCA_LOG(node, LogLevel::Warn, __VA_ARGS__)
#define BRISCA_NOTIC(node, ...) BRISCA_LOG(node, LogLevel::Notic, __VA_ARGS__)
#define BRISCA_INFO(node, ...) BRISCA_LOG(node, LogLevel::Info, __VA_ARGS__)
#define BRISCA_DEBUG(node, ...) BRISCA_LOG(node, LogLevel::Debug, __VA_ARGS__)
#define BRISCA_TRACE(node, ...) BRISCA_LOG(node, LogLevel::Trace, __VA_ARGS__)
