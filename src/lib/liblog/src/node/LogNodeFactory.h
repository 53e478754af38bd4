#pragma once

#include "node/LogNode.h"

class LogNameParser;

/// The root node "GLOBAL" of the log tree, with the operations that find and create nodes by name.
/// A name may be given with or without the leading "GLOBAL" component.
/// Creation is for static initialisation and configuration; it is not locked.
class LogNodeFactory : public LogNode
{
public:
    LogNodeFactory();

    /// The node of this dotted name, created with its missing ancestors when needed; never null.
    /// @param length characters in the name; -1 takes it as NUL-terminated
    LogNode* findOrCreateNode(const char* name, int length);
    /// The node of this dotted name, or null.
    [[nodiscard]] LogNode* findNode(const char* name, int length);
    /// How many nodes have been created below the root.
    [[nodiscard]] unsigned size() const { return m_size; }

private:
    struct Lookup
    {
        LogNode* deepest;  ///< deepest node of the path that exists
        bool found;        ///< whether that is the whole path
    };
    [[nodiscard]] Lookup lookup(LogNameParser& parser);

    unsigned m_size = 0;
};
