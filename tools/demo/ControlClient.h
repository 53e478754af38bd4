#pragma once

#include <string>
#include <string_view>

namespace demo {
/// A client of the simulator's control socket: one command, one reply.
class ControlClient
{
public:
    /// Throws std::runtime_error when nobody listens at @p socketPath.
    explicit ControlClient(const std::string& socketPath);
    ~ControlClient();
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    /// Carries out one command and returns its reply line, "ok key=value ..." or "error text". Blocks as long
    /// as the command does; throws std::runtime_error when the simulator has gone.
    std::string command(const std::string& line);

private:
    std::string readLine();

    int m_socket;
    std::string m_received;
};

/// Value of "key=" in a reply line; empty when it is not there.
std::string fieldOf(std::string_view reply, std::string_view key);
}  // namespace demo
