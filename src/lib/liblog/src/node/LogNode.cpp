#include "node/LogNode.h"

#include <cstring>

LogNode::LogNode(LogNode* parent, const char* name, int length)
    : m_parent(parent), m_level(parent != nullptr ? parent->level() : level_from_string("NOTICE"))
{
    allocateFullName(name, length == -1 ? static_cast<int>(std::strlen(name)) : length);
    if (parent != nullptr)
        parent->addChild(*this);
}

LogNode::~LogNode()
{
    delete m_firstChild;
    delete m_nextSibling;
}

void LogNode::allocateFullName(const char* name, int length)
{
    const int prefixLength = m_parent != nullptr ? m_parent->m_fullNameLength + 1 : 0;
    m_fullNameLength = prefixLength + length;
    m_fullName = std::make_unique<char[]>(static_cast<std::size_t>(m_fullNameLength) + 1);
    if (m_parent != nullptr) {
        std::memcpy(m_fullName.get(), m_parent->fullName(), static_cast<std::size_t>(prefixLength) - 1);
        m_fullName[static_cast<std::size_t>(prefixLength) - 1] = '.';
    }
    std::memcpy(m_fullName.get() + prefixLength, name, static_cast<std::size_t>(length));
    m_shortName = m_fullName.get() + prefixLength;
}

void LogNode::addChild(LogNode& child)
{
    LogNode** tail = &m_firstChild;
    while (*tail != nullptr)
        tail = &(*tail)->m_nextSibling;
    *tail = &child;
}

LogNode* LogNode::findChild(std::string_view name) const
{
    LogNode* child = m_firstChild;
    while (child != nullptr && name != child->m_shortName)
        child = child->m_nextSibling;
    return child;
}

LogNode* LogNode::nextBelow(const LogNode* node) const
{
    if (node->m_firstChild != nullptr)
        return node->m_firstChild;
    while (node != this && node->m_nextSibling == nullptr)
        node = node->m_parent;
    return node == this ? nullptr : node->m_nextSibling;
}

void LogNode::setLevel(LogLevel level)
{
    for (LogNode* node = this; node != nullptr; node = nextBelow(node))
        node->m_level.store(level, std::memory_order_relaxed);
}
