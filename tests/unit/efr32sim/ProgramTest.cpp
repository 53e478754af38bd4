#include "Process.h"
#include "Testing.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

namespace {
/// The program, run as a user does, and a client on its control socket.
class Program : public testing::Test
{
protected:
    void run(const std::vector<std::string>& options = {})
    {
        std::vector<std::string> command = {EFR32SIM_PROGRAM, "--tty",     m_tty,       "--reset",
                                            m_reset,          "--control", m_socket,    "--no-stdin",
                                            "--boot-delay",   "20",        "--any-line"};
        command.insert(command.end(), options.begin(), options.end());
        m_program = std::make_unique<Process>(command, "/dev/null");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        m_socket.copy(address.sun_path, sizeof(address.sun_path) - 1);
        m_client = UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_TRUE(waitUntil([&] {
            return ::connect(m_client.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
        }));
        m_replies.reset(::fdopen(::dup(m_client.get()), "r"));
    }

    /// Sends a command and gives its reply; events in between go to m_events.
    std::string ask(const std::string& command)
    {
        const std::string line = command + '\n';
        EXPECT_EQ(::send(m_client.get(), line.data(), line.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(line.size()));
        std::string reply = nextLine();
        for (; reply.starts_with("event") || reply.starts_with("{\"event\""); reply = nextLine())
            m_events += reply + '\n';
        return reply;
    }

    std::string nextLine()
    {
        std::array<char, 4096> line{};
        const bool got = std::fgets(line.data(), line.size(), m_replies.get()) != nullptr;
        return got ? std::string(line.data(), std::strcspn(line.data(), "\n")) : "nothing";
    }

    TempDir m_directory;
    const std::string m_tty = m_directory.file("tty");
    const std::string m_reset = m_directory.file("reset");
    const std::string m_socket = m_directory.file("control");
    std::unique_ptr<Process> m_program;
    UniqueFd m_client;
    std::unique_ptr<FILE, int (*)(FILE*)> m_replies{nullptr, std::fclose};
    std::string m_events;
};

TEST_F(Program, RefusesBadCommandsWithAReason)
{
    run();
    for (const char* line :
         {"frobnicate", "reset 2", "fault no-such", "fault noise count=x", "fault cut packet=x", "write 0g",
          "write 123", "burst -1", "wait nothing", "bond 11:22", "rssi 200", "receive soon", "connect",
          "pair", "event 1 2 03", "events maybe", "passkey x", "console nothing x", "image /nowhere/x"})
        EXPECT_THAT(ask(line), StartsWith("error ")) << line;
    EXPECT_EQ(ask("# a comment"), "ok");
    EXPECT_THAT(ask("help wait"), StartsWith("# wait EVENT"));
    EXPECT_EQ(nextLine(), "ok");
}

TEST_F(Program, SpeaksJsonAndQuits)
{
    run({"--json", "--power-on", "held", "--address", "11:22:33:44:55:66"});
    EXPECT_THAT(ask("status"), StartsWith("{\"reply\":\"ok\",\"mode\":\"held\","));
    EXPECT_EQ(ask("hm"), "{\"reply\":\"error\",\"text\":\"unknown command \\\"hm\\\", try help\"}");
    ask("reset 1");
    EXPECT_THAT(ask("wait reset_high"), HasSubstr("\"was\":\"held\""));
    EXPECT_THAT(m_events, HasSubstr("{\"event\":\"reset_high\",\"sequence\":"));
    ask("quit");
    EXPECT_EQ(m_program->waitEnd(kPatience), "exit 0");
    EXPECT_TRUE(std::filesystem::is_empty(m_directory.path())) << "link, FIFO and socket are gone";
}
}  // namespace
