#pragma once

#include "UniqueFd.h"
#include "Wait.h"

#include <fcntl.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <string_view>

/// The CoAP application's end of the two pipes.
class Application
{
public:
    Application() = default;

    /// An answer of L bytes behind its header; false when the pipe does not take it as a whole.
    bool answer(std::string_view payload) const
    {
        std::string frame{'\0', '\0', static_cast<char>(payload.size() >> 8U),
                          static_cast<char>(payload.size())};
        return write(frame.append(payload));
    }
    bool write(std::string_view bytes) const
    {
        return ::write(m_writes.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    }
    /// Puts bytes in front of what the service will write.
    bool fillRequests(std::string_view bytes) const
    {
        return ::write(m_reads.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    }
    /// The next @p count bytes of the service, or what came of them in time.
    std::string read(std::size_t count, std::chrono::milliseconds limit = testsupport::kPatience) const
    {
        std::string bytes;
        (void)testsupport::waitUntil(
            [&] {
                std::string piece(count - bytes.size(), '\0');
                const ssize_t got = ::read(m_reads.get(), piece.data(), piece.size());
                bytes.append(piece, 0, static_cast<std::size_t>(got > 0 ? got : 0));
                return bytes.size() == count;
            },
            limit);
        return bytes;
    }
    /// The next request, without its header.
    std::optional<std::string> request() const
    {
        const std::string header = read(2);
        if (header.size() != 2)
            return std::nullopt;
        return read(static_cast<std::uint8_t>(header[0]) | static_cast<std::uint8_t>(header[1]) << 8U);
    }

private:
    testsupport::UniqueFd m_reads{::open("/tmp/ttyBleRx", O_RDWR | O_NONBLOCK | O_CLOEXEC)};
    testsupport::UniqueFd m_writes{::open("/tmp/ttyBleTx", O_RDWR | O_NONBLOCK | O_CLOEXEC)};
};
