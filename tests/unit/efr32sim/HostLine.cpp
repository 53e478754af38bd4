#include "HostLine.h"

#include <termios.h>

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

std::string HostLine::readUntil(std::string_view text)
{
    std::string result;
    for (std::string next = read(1); !next.empty(); next = read(1)) {
        result += next;
        if (result.ends_with(text))
            break;
    }
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

RunningChip::RunningChip()
    : chip({.checkLine = false, .powerOn = efr32sim::Mode::Held, .bootDelay = efr32sim::Milliseconds(10)})
{
    chip.start();
    chip.setReset(true);
    host.emplace(chip.slavePath());
    host->send("2");
    EXPECT_TRUE(waitUntil([this] { return chip.mode() != efr32sim::Mode::Bootloader; }));
    host->set(HostLine::kCoprocessor);
    (void)host->readPacket();
}
