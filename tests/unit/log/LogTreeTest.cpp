#include "Testing.h"
#include "facade/Log.h"

namespace {
TEST(LogLevels, ReadConfigurationWords)
{
    for (const auto& [text, level] :
         Rows<int>{{"NONE", 0},    {"EMERG", 1},   {"FATAL", 2}, {"CRIT", 3},      {"ERROR", 4},
                   {"WARN", 5},    {"WARNING", 5}, {"NOTIC", 6}, {"NOTICE", 6},    {"INFO", 7},
                   {"DEBUG\n", 8}, {"TRACE", 9},   {"N", 0},     {"NOT", 6},       {"E", 1},
                   {"D", 8},       {"", 0},        {"7", 7},     {"12", 1},        {"0x9", 0},
                   {"debug", 0},   {"\n", 0},      {"-1", 0},    {"DEBUGGING", 8}, {"INFX", 0}})
        EXPECT_EQ(static_cast<int>(level_from_string(text)), level) << text;
}

TEST(LogTree, FindsNodesWithAndWithoutTheRootsName)
{
    LogNodeFactory tree;
    EXPECT_EQ(tree.findOrCreateNode("GLOBAL.a.b.c.rest", 12), tree.findOrCreateNode("a.b.c", -1));
    (void)tree.findOrCreateNode("[x][y]", -1);
    // clang-format off
    for (const auto& [name, length, fullName] : Rows<int, const char*>{
             {"GLOBAL", -1, "GLOBAL"}, {"a", -1, "GLOBAL.a"}, {"GLOBAL.a", -1, "GLOBAL.a"},
             {"a.b", -1, "GLOBAL.a.b"}, {"GLOBAL.a.b.c", 10, "GLOBAL.a.b"}, {"a.b.c", -1, "GLOBAL.a.b.c"},
             {"[x][y]", -1, "GLOBAL.[x][y]"}, {"b", -1, nullptr}, {"a.b.c.d", -1, nullptr},
             {"a.bb", -1, nullptr}, {"a.", -1, nullptr}, {"", -1, nullptr}, {"a.GLOBAL", -1, nullptr},
             {"global", -1, nullptr}}) {
        // clang-format on
        SCOPED_TRACE(name);
        const LogNode* const found = tree.findNode(name, length);
        EXPECT_STREQ(found != nullptr ? found->fullName() : nullptr, fullName);
    }
}

TEST(LogTree, PrintsTheNodesBelowOneInPreOrder)
{
    LogFacade::setLevel("print.a.deep", LogLevel::Debug);
    LogFacade::setLevel("print.b", LogLevel::Emerg);
    StdoutCapture capture;
    LogFacade::printTree("print");
    std::string printed;
    for (const std::string& line : capture.lines())
        printed += line.substr(10) + "\n";
    EXPECT_EQ(printed,
              "LogNode.cpp              :0027: <NOTIC> [liblog] Current log configuration :\n"
              "LogNode.cpp              :0029: <NOTIC> [liblog] GLOBAL.print.a:NOTIC\n"
              "LogNode.cpp              :0029: <NOTIC> [liblog] GLOBAL.print.a.deep:DEBUG\n"
              "LogNode.cpp              :0029: <NOTIC> [liblog] GLOBAL.print.b:EMERG\n");
    LogFacade::printTree("no.such.node");
    EXPECT_EQ(capture.logLines().back(), "<ERROR> [liblog] Couldn't find node 'no.such.node'");
}
}  // namespace
