#include "Testing.h"
#include "conf/LogConf.h"
#include "facade/Log.h"

#include <sys/stat.h>

#include <map>

namespace {
class LogConfFile : public testing::Test
{
protected:
    ~LogConfFile() override { LogFacade::inst().setLevel(LogLevel::Notic); }
    TempDir m_dir;
};

TEST_F(LogConfFile, SetsLevels)
{
    const std::string longComment(400, '.');
    for (const auto& [name, content, levels] : Rows<std::string, std::map<std::string, int>>{
             {"a branch", "conf : DEBUG\n", {{"conf", 8}, {"conf.a", 8}, {"conf.a.b", 8}, {"other", 6}}},
             {"a later line for a part of a branch",
              "conf:DEBUG\nconf.a:WARN # less\n",
              {{"conf", 8}, {"conf.a", 5}, {"conf.a.b", 5}}},
             {"a later line for the whole branch",
              "conf.a.b:INFO\nconf.a:ERROR\n",
              {{"conf.a", 4}, {"conf.a.b", 4}}},
             {"a later line for a leaf", "conf.a:ERROR\nconf.a.b:INFO\n", {{"conf.a", 4}, {"conf.a.b", 7}}},
             {"a digit for the whole tree", "GLOBAL:3\n", {{"GLOBAL", 3}, {"conf.a", 3}, {"other", 3}}},
             {"the root's name in front", "GLOBAL.conf.a:9", {{"conf.a", 9}, {"conf", 6}}},
             {"blanks inside words", " \tconf : DE BUG   # comment\n", {{"conf", 8}}},
             {"a line feed is part of a short word", "conf:W\n", {{"conf", 0}}},
             {"carriage returns", "\r\nconf:INFO\r\n", {{"conf", 7}}},
             {"lines that say nothing", "\n   \n\t\n# conf:TRACE\n  #\n#\nconf:INFO\n", {{"conf", 7}}},
             {"a line without colon", "conf\nDEBUG\nother:INFO\n", {{"conf", 6}, {"other", 7}}},
             {"no line end at the end", "other:1\nconf:INFO", {{"conf", 7}, {"other", 1}}},
             {"an over-long line is read as lines of 254 characters",
              "conf:INFO#" + longComment.substr(0, 244) + "other:DEBUG\n",
              {{"conf", 7}, {"other", 8}}},
             {"a new node inherits",
              "conf:TRACE\nconf.fresh.leaf:INFO\n",
              {{"conf.fresh", 9}, {"conf.fresh.leaf", 7}}},
             {"a NUL byte ends its line",
              std::string("conf:INFO\0:TRACE\nother:5\n", 25),
              {{"conf", 7}, {"other", 5}}},
             {"an empty file", "", {{"GLOBAL", 6}}},
         }) {
        SCOPED_TRACE(name);
        (void)LogFacade::inst().findOrCreateNode("conf.a.b", -1);
        (void)LogFacade::inst().findOrCreateNode("other", -1);
        LogFacade::inst().setLevel(LogLevel::Notic);
        LogConf::readConf(m_dir.write("log.cfg", content).c_str());
        for (const auto& [node, level] : levels) {
            const LogNode* const found = LogFacade::inst().findNode(node.c_str(), -1);
            ASSERT_NE(found, nullptr) << node;
            EXPECT_EQ(static_cast<int>(found->level()), level) << node;
        }
    }
    EXPECT_EQ(LogFacade::inst().findNode("DEBUG\n", -1), nullptr);
}

TEST_F(LogConfFile, IsSharedWithWhoeverAsks)
{
    std::vector<char> shared(512, '?');
    LOG_SHARED_MEMORY_CONF_PTR = shared.data();
    LogConf::readConf(m_dir.write("log.cfg", "share : INFO # why\n\n# only\nnothing\nshare.x:5\n").c_str());
    EXPECT_STREQ(shared.data(), "share:INFO\nshare.x:5\n");
    ASSERT_EQ(::mkfifo(m_dir.file("fifo").c_str(), 0600), 0);
    const UniqueFd writer(::open(m_dir.file("fifo").c_str(), O_RDWR | O_CLOEXEC));
    for (const std::string& unreadable : {m_dir.file("missing"), m_dir.path(), m_dir.file("fifo")}) {
        shared[0] = '?';
        StdoutCapture capture;
        LogConf::readConf(unreadable.c_str());
        EXPECT_STREQ(shared.data(), "");
        EXPECT_EQ(capture.count("<ERROR> [liblog] Coulnd't open file at path " + unreadable), 1);
    }
    LOG_SHARED_MEMORY_CONF_PTR = nullptr;
}

TEST_F(LogConfFile, NamesTheWordsThatAreNoLevel)
{
    StdoutCapture capture;
    LogConf::readConf(
        m_dir.write("log.cfg", "GLOBAL:debug\r\na.b:IN\x1B[1mFO # x\nconf:\nother:WARN\n").c_str());
    EXPECT_EQ(capture.logLines(),
              (std::vector<std::string>{
                  "<ERROR> [liblog] 'debug' is no level: 'GLOBAL' logs nothing from here on",
                  "<ERROR> [liblog] 'IN\\x1B[1mFO' is no level: 'a.b' logs nothing from here on",
                  "<ERROR> [liblog] '' is no level: 'conf' logs nothing from here on"}));
}

TEST_F(LogConfFile, OfAnySizeIsReadInABoundedTime)
{
    std::string names;
    for (int node = 0; node < 2000; ++node)
        names += "many.n" + std::to_string(node) + ":6\n";
    std::string lines;
    for (int line = 0; line < 4000; ++line)
        lines += "#\n";
    for (const auto& [name, content, used] : Rows<std::string, const char*>{
             {"names", names + "last:8\n", "1000"}, {"lines", lines + "last:8\n", "4000"}}) {
        SCOPED_TRACE(name);
        StdoutCapture capture;
        LogConf::readConf(m_dir.write("log.cfg", content).c_str());
        EXPECT_EQ(capture.logLines(),
                  std::vector<std::string>{std::string("<ERROR> [liblog] Only the first ") + used +
                                           " lines of " + m_dir.file("log.cfg") + " are used"});
        EXPECT_EQ(LogFacade::inst().findNode("last", -1), nullptr);
    }
}
}  // namespace
