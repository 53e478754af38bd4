#include "ControlClient.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <stdexcept>

namespace demo {
ControlClient::ControlClient(const std::string& socketPath)
    : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof address.sun_path)
        throw std::runtime_error("path too long: " + socketPath);
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    if (::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("no simulator at " + socketPath);
    command("events off");
}

ControlClient::~ControlClient()
{
    ::close(m_socket);
}

std::string ControlClient::command(const std::string& line)
{
    const std::string request = line + "\n";
    if (::send(m_socket, request.data(), request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request.size()))
        throw std::runtime_error("the simulator has gone");
    for (;;) {
        std::string reply = readLine();
        if (reply.starts_with("ok") || reply.starts_with("error"))
            return reply;
    }
}

std::string ControlClient::readLine()
{
    std::size_t end = 0;
    while ((end = m_received.find('\n')) == std::string::npos) {
        char buffer[4096];
        const ssize_t got = ::read(m_socket, buffer, sizeof buffer);
        if (got <= 0)
            throw std::runtime_error("the simulator has gone");
        m_received.append(buffer, static_cast<std::size_t>(got));
    }
    std::string line = m_received.substr(0, end);
    m_received.erase(0, end + 1);
    return line;
}

std::string fieldOf(std::string_view reply, std::string_view key)
{
    std::string wanted(" ");
    wanted.append(key).append("=");
    const std::size_t found = reply.find(wanted);
    if (found == std::string_view::npos)
        return {};
    reply.remove_prefix(found + wanted.size());
    const bool quoted = reply.starts_with('"');
    if (quoted)
        reply.remove_prefix(1);
    return std::string(reply.substr(0, reply.find(quoted ? '"' : ' ')));
}
}  // namespace demo
