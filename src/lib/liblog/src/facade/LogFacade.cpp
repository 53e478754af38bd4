#include "facade/LogFacade.h"

#include "facade/Log.h"

#include <sys/single_threaded.h>

#include <cstring>

BRISCA_LOG_NODE(logNode, "liblog");

namespace {
/// Frees the tree at process exit, unless threads are left that may still log through it.
class TreeOwner
{
public:
    TreeOwner() = default;
    ~TreeOwner()
    {
        if (__libc_single_threaded != 0)
            delete m_root;
    }
    TreeOwner(const TreeOwner&) = delete;
    TreeOwner& operator=(const TreeOwner&) = delete;
    [[nodiscard]] LogNodeFactory& root() const { return *m_root; }

private:
    LogNodeFactory* const m_root = new LogNodeFactory;
};
}  // namespace

LogNodeFactory& LogFacade::inst()
{
    static TreeOwner owner;
    static LogNodeFactory& root = owner.root();
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
