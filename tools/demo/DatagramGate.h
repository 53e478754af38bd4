#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace demo {
/// A loopback UDP socket that stands between libcoap and a transport that libcoap does not know.
///
/// libcoap speaks CoAP over UDP to this gate; whatever it sends comes out of receive() as one CoAP message,
/// and a message given to send() reaches libcoap as one datagram.
class DatagramGate
{
public:
    DatagramGate();
    ~DatagramGate();
    DatagramGate(const DatagramGate&) = delete;
    DatagramGate& operator=(const DatagramGate&) = delete;

    [[nodiscard]] int descriptor() const { return m_socket; }
    /// UDP port on 127.0.0.1 at which libcoap reaches the gate.
    [[nodiscard]] std::uint16_t port() const;
    /// Sends every further message to libcoap at this port of 127.0.0.1. Without this call the gate answers
    /// whoever sent to it last.
    void connectTo(std::uint16_t port);

    void send(std::span<const std::uint8_t> message) const;
    /// The next message from libcoap, or nothing when none is waiting. At most 64 KiB.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> receive();

private:
    int m_socket;
    std::uint16_t m_peer = 0;
};
}  // namespace demo
