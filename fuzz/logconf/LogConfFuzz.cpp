// Reads any bytes as the log configuration of a station.

#include "conf/LogConf.h"
#include "facade/LogFacade.h"
#include "support/Require.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

namespace {
constexpr std::size_t kMaxText = 512;
// Nodes that a configuration names are made and stay: later inputs go to trees of their own, or they would
// fill the memory.
constexpr unsigned kInputsOfTheProcessTree = 10'000;

/// Every level that can be reached in the tree is one of the ten.
void checkLevels(const LogNode& node)
{
    require(node.level() >= LogLevel::None && node.level() <= LogLevel::Trace);
    for (const LogNode* child = node.firstChild(); child != nullptr; child = child->nextSibling())
        checkLevels(*child);
}

void checkCleanLine(const std::string& text)
{
    std::vector<char> line(text.c_str(), text.c_str() + std::strlen(text.c_str()) + 1);
    const int length = LogConf::cleanLine(line.data());
    require(length == static_cast<int>(std::strlen(line.data())) && length <= static_cast<int>(line.size()));
    require(std::strpbrk(line.data(), " \t#") == nullptr);
}
void readByTheProcess(const std::string& text)
{
    LogFacade::inst().setLevel(LogLevel::None);  // no line for every word that is no level
    const int file = ::memfd_create("log.cfg", MFD_CLOEXEC);
    require(::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    std::vector<char> copy(text.size() + 1, 'x');
    LOG_SHARED_MEMORY_CONF_PTR = copy.data();
    LogConf::readConf(("/proc/self/fd/" + std::to_string(file)).c_str());
    ::close(file);
    require(std::memchr(copy.data(), '\0', copy.size()) != nullptr);
}

/// The text names a node and its level in a tree of its own, where it is found again.
void readByATree(const std::string& text)
{
    LogNodeFactory tree;
    const auto length = static_cast<int>(std::strlen(text.c_str()));
    LogNode* const node = tree.findOrCreateNode(text.c_str(), length);
    node->setLevel(level_from_string(text.c_str()));
    require(tree.findNode(text.c_str(), length) == node);
    require(tree.findOrCreateNode(text.c_str(), length) == node);
    checkLevels(tree);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static unsigned inputs = 0;
    const std::string text(reinterpret_cast<const char*>(data), std::min(size, kMaxText));
    checkCleanLine(text);
    readByATree(text);
    if (++inputs < kInputsOfTheProcessTree)
        readByTheProcess(text);
    if (inputs == kInputsOfTheProcessTree)
        checkLevels(LogFacade::inst());
    return 0;
}
