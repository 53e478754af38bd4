#include "facade/LogFacade.h"

#include "facade/Log.h"
#include "facade/LogText.h"

#include <sys/single_threaded.h>

#include <cstring>

BRISCA_LOG_NODE(logNode, "liblog");

namespace {
// What the tree print shows as its source, wherever the statements stand: part of the log's format.
constexpr const char* kTreeFile = "LogNode.cpp";
constexpr int kTreeTitleLine = 27;
constexpr int kTreeNodeLine = 29;

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

// Here and not beside the rest of the class, because the nodes lie below the lines that are logged through
// them.
void LogNode::printTree() const
{
    if (!logNode->passes(LogLevel::Notic))
        return;
    log_event(*logNode, LogLevel::Notic, kTreeFile, kTreeTitleLine, nullptr, "Current log configuration :");
    for (const LogNode* node = nextBelow(this); node != nullptr; node = nextBelow(node)) {
        log_event(*logNode, LogLevel::Notic, kTreeFile, kTreeNodeLine, nullptr, "%s:%s",
                  printable(node->fullName()).c_str(), level_to_string(node->level()));
    }
}
