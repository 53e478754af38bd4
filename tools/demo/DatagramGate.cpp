#include "DatagramGate.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace demo {
namespace {
constexpr std::size_t kLargestDatagram = 65535;

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}
}  // namespace

DatagramGate::DatagramGate() : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    const sockaddr_in address = loopback(0);
    if (m_socket < 0 || ::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("no loopback socket");
}

DatagramGate::~DatagramGate()
{
    ::close(m_socket);
}

std::uint16_t DatagramGate::port() const
{
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

void DatagramGate::connectTo(std::uint16_t port)
{
    m_peer = port;
}

void DatagramGate::send(std::span<const std::uint8_t> message) const
{
    const sockaddr_in address = loopback(m_peer);
    (void)::sendto(m_socket, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                   sizeof address);
}

std::optional<std::vector<std::uint8_t>> DatagramGate::receive()
{
    std::vector<std::uint8_t> message(kLargestDatagram);
    sockaddr_in sender = {};
    socklen_t size = sizeof sender;
    const ssize_t got =
        ::recvfrom(m_socket, message.data(), message.size(), 0, reinterpret_cast<sockaddr*>(&sender), &size);
    if (got < 0)
        return std::nullopt;
    m_peer = ntohs(sender.sin_port);
    message.resize(static_cast<std::size_t>(got));
    return message;
}
}  // namespace demo
