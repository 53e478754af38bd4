#include "Process.h"

#include "Wait.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace {
[[noreturn]] void becomeProgram(const std::vector<std::string>& command, const std::string& outputPath,
                                const Process::Environment& environment)
{
    const int output = ::open(outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    ::close_range(STDERR_FILENO + 1, ~0U, 0);  // as systemd starts programs
    for (const std::string& entry : environment)
        ::putenv(::strdup(entry.c_str()));
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(::strdup(argument.c_str()));
    arguments.push_back(nullptr);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
}
}  // namespace

Process::Process(const std::vector<std::string>& command, const std::string& outputPath,
                 const Environment& environment)
    : m_pid(::fork())
{
    if (m_pid < 0)
        throw std::runtime_error("fork failed");
    if (m_pid == 0)
        becomeProgram(command, outputPath, environment);
}

Process::~Process()
{
    if (!isRunning())
        return;
    kill(SIGKILL);
    (void)waitEnd(testsupport::kPatience);
}

void Process::poll()
{
    int status = 0;
    if (m_end || ::waitpid(m_pid, &status, WNOHANG) != m_pid)
        return;
    m_end = WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                              : "signal " + std::to_string(WTERMSIG(status));
}

bool Process::isRunning()
{
    poll();
    return !m_end;
}

void Process::kill(int signal) const
{
    ::kill(m_pid, signal);
}

std::optional<std::string> Process::waitEnd(std::chrono::milliseconds limit)
{
    (void)testsupport::waitUntil([this] { return !isRunning(); }, limit);
    return m_end;
}

std::vector<pid_t> Process::threads() const
{
    std::vector<pid_t> result;
    const auto path = "/proc/" + std::to_string(m_pid) + "/task";
    for (const auto& entry : std::filesystem::directory_iterator(path))
        result.push_back(std::stoi(entry.path().filename()));
    std::sort(result.begin(), result.end());
    return result;
}

std::vector<std::string> Process::descriptors() const
{
    std::vector<std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(m_pid) + "/fd")) {
        std::error_code error;  // one that is closed meanwhile leads nowhere
        result.push_back(std::filesystem::read_symlink(entry.path(), error));
    }
    return result;
}

std::vector<pid_t> Process::running(const std::string& program)
{
    std::vector<pid_t> result;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::error_code error;
        const auto target = std::filesystem::read_symlink(entry.path() / "exe", error);
        if (!error && target == program)
            result.push_back(std::stoi(entry.path().filename()));
    }
    return result;
}
