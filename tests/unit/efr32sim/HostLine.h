#pragma once

#include "Testing.h"
#include "efr32sim/Chip.h"

/// Settings of the host's end; eight data bits, no parity.
struct HostSettings
{
    unsigned baud = 230400;
    bool rtsCts = false;
    bool twoStopBits = false;
};

/// The host's end of the serial line, as a program would open it.
class HostLine
{
public:
    static constexpr HostSettings kConsole{};
    static constexpr HostSettings kCoprocessor{115200, true, false};

    explicit HostLine(const std::string& path, const HostSettings& settings = kConsole);

    void set(const HostSettings& settings);
    void send(std::string_view bytes) const { testsupport::writeTo(fd(), bytes); }
    [[nodiscard]] std::string read(std::size_t count, std::chrono::milliseconds limit = kPatience) const
    {
        return testsupport::readFrom(fd(), count, limit);
    }
    /// Reads until @p text has come; everything read so far, or what came before the time was up.
    std::string readUntil(std::string_view text);
    /// Reads one packet, header included, as hexadecimal text.
    std::string readPacket();
    /// Sends a command packet and reads one packet.
    std::string command(int classId, int id, const std::vector<int>& payload = {});
    void sendCommand(int classId, int id, const std::vector<int>& payload = {}) const;
    [[nodiscard]] int fd() const { return m_fd.get(); }

private:
    UniqueFd m_fd;
};

/// A chip whose firmware has booted, with the host's line open and the boot event read.
struct RunningChip
{
    RunningChip();
    efr32sim::Chip chip;
    std::optional<HostLine> host;
};
