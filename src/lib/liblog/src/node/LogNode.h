#pragma once

#include "node/LogLevel.h"

#include <atomic>
#include <memory>
#include <string_view>

/// One named node of the log tree: a severity threshold that log statements test before anything else.
///
/// Nodes are created during static initialisation and never removed before process exit; levels may be read
/// and set from any thread at any time.
class LogNode
{
public:
    /// @param parent appended to, and the level inherited from it; null makes a root at NOTIC
    /// @param name   own component of the name; need not be NUL-terminated
    /// @param length its length in characters; -1 takes it as NUL-terminated
    LogNode(LogNode* parent, const char* name, int length = -1);
    virtual ~LogNode();
    LogNode(const LogNode&) = delete;
    LogNode& operator=(const LogNode&) = delete;

    [[nodiscard]] LogLevel level() const { return m_level.load(std::memory_order_relaxed); }
    /// True when a statement of this severity is to be written.
    [[nodiscard]] bool passes(LogLevel statement) const { return level() >= statement; }
    /// Sets the level of this node and of every node below it.
    void setLevel(LogLevel level);

    /// Dotted path from the root, NUL-terminated, e.g. "GLOBAL.BriscaService.comm.An760".
    [[nodiscard]] const char* fullName() const { return m_fullName.get(); }
    /// Last component of the full name, NUL-terminated.
    [[nodiscard]] const char* shortName() const { return m_shortName; }
    /// Characters in the full name, without its terminator.
    [[nodiscard]] int fullNameLength() const { return m_fullNameLength; }

    [[nodiscard]] LogNode* parent() const { return m_parent; }
    [[nodiscard]] LogNode* firstChild() const { return m_firstChild; }
    [[nodiscard]] LogNode* nextSibling() const { return m_nextSibling; }
    /// Child of exactly this short name, or null.
    [[nodiscard]] LogNode* findChild(std::string_view name) const;

    /// Appends a node, which this one then owns, at the tail of the list of children.
    void addChild(LogNode& child);
    /// Logs every node below this one with its level on the "liblog" node, parents before children.
    void printTree() const;

private:
    void allocateFullName(const char* name, int length);
    /// The node after @p node in a pre-order walk of this node's subtree; null at its end.
    [[nodiscard]] LogNode* nextBelow(const LogNode* node) const;

    LogNode* m_parent;
    LogNode* m_firstChild = nullptr;
    LogNode* m_nextSibling = nullptr;
    std::atomic<LogLevel> m_level;
    const char* m_shortName = nullptr;
    std::unique_ptr<char[]> m_fullName;
    int m_fullNameLength = 0;
};
