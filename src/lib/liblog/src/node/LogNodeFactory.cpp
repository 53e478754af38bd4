#include "node/LogNodeFactory.h"

#include "node/LogNameParser.h"

namespace {
constexpr const char* kRootName = "GLOBAL";
}

LogNodeFactory::LogNodeFactory() : LogNode(nullptr, kRootName) {}

LogNodeFactory::Lookup LogNodeFactory::lookup(LogNameParser& parser)
{
    (void)parser.next();
    if (parser.component() == kRootName && !parser.next())
        return {this, true};
    LogNode* current = this;
    while (LogNode* const child = current->findChild(parser.component())) {
        current = child;
        if (!parser.next())
            return {current, true};
    }
    return {current, false};
}

LogNode* LogNodeFactory::findNode(const char* name, int length)
{
    LogNameParser parser(name, length);
    const Lookup result = lookup(parser);
    return result.found ? result.deepest : nullptr;
}

LogNode* LogNodeFactory::findOrCreateNode(const char* name, int length)
{
    LogNameParser parser(name, length);
    const Lookup result = lookup(parser);
    LogNode* node = result.deepest;
    if (result.found)
        return node;
    do {
        const auto component = parser.component();
        // Owned by its parent through the list of children.
        node = new LogNode(node, component.data(), static_cast<int>(component.size()));
        ++m_size;
    } while (parser.next());
    return node;
}
