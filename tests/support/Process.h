#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// A child process whose output goes to a file; killed when the object goes.
class Process
{
public:
    using Environment = std::vector<std::string>;

    /// @param outputPath receives standard output and standard error, appended
    Process(const std::vector<std::string>& command, const std::string& outputPath,
            const Environment& environment = {});
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    [[nodiscard]] pid_t pid() const { return m_pid; }
    [[nodiscard]] bool isRunning();
    void kill(int signal) const;
    /// "exit N" or "signal N" once it has ended; nothing when it did not end in time.
    std::optional<std::string> waitEnd(std::chrono::milliseconds limit);

    /// Ids of the threads, the main thread first.
    [[nodiscard]] std::vector<pid_t> threads() const;
    /// What the open descriptors lead to, e.g. "/dev/pts/3".
    [[nodiscard]] std::vector<std::string> descriptors() const;
    /// Ids of the living child processes that run this program.
    static std::vector<pid_t> running(const std::string& program);

private:
    void poll();

    pid_t m_pid = -1;
    std::optional<std::string> m_end;
};
