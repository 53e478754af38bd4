#include "HostLine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>

#include <array>

using efr32sim::Chip;
using efr32sim::ChipOptions;
using std::chrono::steady_clock;

HostLine::HostLine(const std::string& path, const HostSettings& settings)
    : m_fd(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC))
{
    EXPECT_GE(m_fd.get(), 0) << path;
    set(settings);
}

void HostLine::set(const HostSettings& settings)
{
    termios line{};
    ASSERT_EQ(::tcgetattr(fd(), &line), 0);
    ::cfmakeraw(&line);
    ::cfsetspeed(&line, settings.baud == 230400 ? B230400 : settings.baud == 115200 ? B115200 : B9600);
    line.c_cflag |= (settings.rtsCts ? CRTSCTS : 0) | (settings.twoStopBits ? CSTOPB : 0) | CLOCAL;
    line.c_cflag &= ~((settings.rtsCts ? 0 : CRTSCTS) | (settings.twoStopBits ? 0 : CSTOPB));
    ASSERT_EQ(::tcsetattr(fd(), TCSANOW, &line), 0);
}

void HostLine::send(std::string_view bytes) const
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd(), bytes.data(), bytes.size());
        ASSERT_GT(written, 0);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

bool HostLine::fill(steady_clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now()).count();
    pollfd waiting{fd(), POLLIN, 0};
    if (left < 0 || ::poll(&waiting, 1, static_cast<int>(left)) <= 0)
        return false;
    std::array<char, 4096> buffer{};
    const ssize_t got = ::read(fd(), buffer.data(), buffer.size());
    if (got <= 0)
        return false;
    m_received.append(buffer.data(), static_cast<std::size_t>(got));
    return true;
}

std::string HostLine::readUntil(std::string_view text, std::chrono::milliseconds limit)
{
    const auto deadline = steady_clock::now() + limit;
    while (m_received.find(text) == std::string::npos && fill(deadline)) {
    }
    const std::size_t end = m_received.find(text);
    return read(end == std::string::npos ? m_received.size() : end + text.size());
}

std::string HostLine::read(std::size_t count, std::chrono::milliseconds limit)
{
    const auto deadline = steady_clock::now() + limit;
    while (m_received.size() < count && fill(deadline)) {
    }
    std::string result = m_received.substr(0, count);
    m_received.erase(0, result.size());
    return result;
}

std::string HostLine::readPacket()
{
    std::string packet = read(4);
    if (packet.size() == 4) {
        const auto byte = [&packet](int i) { return static_cast<unsigned char>(packet[i]); };
        packet += read(static_cast<std::size_t>((byte(0) & 7) << 8 | byte(1)));
    }
    return efr32sim::toHex({reinterpret_cast<const std::uint8_t*>(packet.data()), packet.size()});
}

void HostLine::sendCommand(int classId, int id, const std::vector<int>& payload) const
{
    std::string packet{0x20, static_cast<char>(payload.size()), static_cast<char>(classId),
                       static_cast<char>(id)};
    for (const int byte : payload)
        packet += static_cast<char>(byte);
    send(packet);
}

std::string HostLine::command(int classId, int id, const std::vector<int>& payload)
{
    sendCommand(classId, id, payload);
    return readPacket();
}

namespace {
ChipOptions inFirmware(ChipOptions options)
{
    options.powerOn = efr32sim::Mode::Held;
    return options;
}
}  // namespace

RunningChip::RunningChip(ChipOptions options) : chip(inFirmware(std::move(options)))
{
    chip.start();
    chip.setReset(true);
    host.emplace(chip.slavePath());
    host->send("2");
    EXPECT_TRUE(testsupport::waitUntil([this] { return chip.mode() != efr32sim::Mode::Bootloader; }));
    host->set(HostLine::kCoprocessor);
    bootEvent = host->readPacket();
}
