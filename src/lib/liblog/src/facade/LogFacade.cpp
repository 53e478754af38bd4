#include "facade/LogFacade.h"

#include "facade/Log.h"

#include <cstring>

BRISCA_LOG_NODE(logNode, "liblog");

LogNodeFactory& LogFacade::inst()
{
    static LogNodeFactory root;
    return root;
}

void LogFacade::setLevel(const char* name, LogLevel level)
{
    inst().findOrCreateNode(name, -1)->setLevel(level);
}

bool LogFacade::setLevel(const char* line)
{
    const char* const colon = std::strchr(line, ':');
    if (colon == nullptr)
        return false;
    inst().findOrCreateNode(line, static_cast<int>(colon - line))->setLevel(level_from_string(colon + 1));
    return true;
}

void LogFacade::printTree(const char* name)
{
    const LogNode* const node = inst().findNode(name, -1);
    if (node == nullptr) {
        BRISCA_ERROR(logNode, "Couldn't find node '%s'", name);
        return;
    }
    node->printTree();
}
