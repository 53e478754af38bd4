#pragma once

#include "efr32sim/Event.h"
#include "efr32sim/Fault.h"
#include "efr32sim/Types.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace efr32sim {
/// How a chip is built. Everything has a value with which it works; empty paths leave that side out.
struct ChipOptions
{
    std::string ttyPath = {};    ///< symbolic link to the serial line that start() makes and stop() removes
    std::string resetPath = {};  ///< FIFO on which '0' and '1' arrive; made when it is missing
    bool pace = false;           ///< bytes take their real time: ten bit times each at the line's speed
    bool checkLine = true;       ///< a wrong speed or format garbles the line, as it would a real one
    Mode powerOn = Mode::Bootloader;  ///< Held, Bootloader or Firmware (Booting counts as Firmware)
    /// From '2' on the console (or a reboot) to the boot event. The co-processor host discards what
    /// arrives in the first 150 ms after it opened the line: a shorter delay loses the boot event.
    Milliseconds bootDelay{300};
    Milliseconds bootloaderDelay{0};  ///< from the reset line's release until the console hears
    bool uploadErases = false;        ///< an upload that broke off leaves no firmware to run

    // Console texts, sent as they stand.
    std::string menu = "\r\nEFR32 Serial Btl v1.9.2\r\n1. upload\r\n2. run\r\n3. info\r\n";
    std::string prompt = "BL > ";
    std::string information = "\r\nEFR32MG12 application v2.3.1\r\n";
    Milliseconds xmodemPing{1000};   ///< the receiver repeats its 'C' at this interval
    Milliseconds xmodemStall{1000};  ///< a block that stops coming is answered with NAK after this time

    // Identity of the firmware.
    Address address{0x01, 0x02, 0x03, 0x04, 0x05, 0x06};  ///< least significant byte first
    std::array<std::uint16_t, 4> version{2, 13, 7, 128};  ///< major, minor, patch, build of the boot event
    std::uint32_t bootloaderVersion = 0x01090200;
    std::uint16_t hardware = 1;
    std::array<std::uint8_t, 3> applicationVersion{2, 3, 1};
    std::array<std::uint8_t, 3> railVersion{2, 8, 9};
    std::uint16_t characteristic = 26;  ///< handle of the characteristic that carries the phone's data
    std::uint16_t attMtu = 247;

    std::size_t history = 65536;                  ///< events kept
    std::optional<std::uint64_t> chaosSeed = {};  ///< random faults, the same ones for the same seed
    double chaosRate = 0.02;                      ///< probability of a fault at each opportunity, 0 to 1
};

enum class ConsoleText { Menu, Prompt, Information };

/// A phone, as the chip sees it. Called on the chip's thread while the chip is locked: implementations
/// take note, and call nothing of the chip.
class RadioPeer
{
public:
    virtual ~RadioPeer() = default;
    virtual void onNotification(std::uint16_t characteristic, ByteSpan fragment) = 0;
    virtual void onDisconnected(std::uint16_t reason) = 0;
};

/// One simulated radio chip with its serial line and reset line.
/// Every function may be called on any thread, except where stated. Events tell what happened; a caller
/// that waits takes a cursor before it acts:
///     auto events = chip.follow();
///     chip.setReset(true);
///     events.waitFor(EventKind::ModeChanged);
class Chip
{
public:
    explicit Chip(ChipOptions options = {});
    ~Chip();
    Chip(const Chip&) = delete;
    Chip& operator=(const Chip&) = delete;

    /// Opens the lines and starts the chip's thread. Throws std::system_error when a line cannot be made.
    void start();
    /// Ends the thread, closes the lines and removes what start() made; harmless when not started.
    void stop();

    /// The pseudo-terminal's slave, "/dev/pts/N". Changes with hangUp() and plugIn(); ttyPath follows it.
    [[nodiscard]] std::string slavePath() const;
    [[nodiscard]] Mode mode() const;
    /// Handle of the characteristic that carries the phone's data.
    [[nodiscard]] std::uint16_t characteristic() const;

    /// Events from now on.
    [[nodiscard]] EventCursor follow() const;
    /// Events from the very beginning, as far as the history reaches.
    [[nodiscard]] EventCursor followFromStart() const;
    [[nodiscard]] const EventLog& events() const;
    [[nodiscard]] EventLog& events();

    // The reset line. false ('0') holds the chip silent and forgets all but its flash (image, bonds,
    // saved tuning); true ('1') starts it in its bootloader when it was held.
    void setReset(bool high);

    // Firmware images.
    /// The last image that arrived whole, filling bytes included; empty before the first.
    [[nodiscard]] Bytes image() const;
    [[nodiscard]] unsigned imageCount() const;
    /// Replaces the texts of the bootloader console, or one of them.
    void setConsoleTexts(std::string menu, std::string prompt, std::string information);
    void setConsoleText(ConsoleText which, std::string text);

    // Faults.
    void inject(const Fault& fault);
    void clearFaults();
    /// Begins random faults, the same ones for the same seed, or ends them.
    /// @param rate probability of a fault at each opportunity, 0 to 1
    void setChaos(std::optional<std::uint64_t> seed, double rate = 0.02);
    /// The firmware restarts by itself, with a boot event after the boot delay. Ends a connection.
    void reboot();
    /// Tears the serial line out: programs that have it open see it hang up, ttyPath disappears.
    void hangUp();
    /// Plugs a new serial line in behind ttyPath. Does nothing while one is there.
    void plugIn();

    // Packets of the caller's own making, sent to the host when the firmware runs; false otherwise.
    bool sendEvent(std::uint8_t classId, std::uint8_t id, ByteSpan payload);
    /// @p count RSSI reports back to back.
    bool sendBurst(unsigned count);
    /// Bytes as they stand, in any mode but Held.
    bool sendRaw(ByteSpan bytes);

    // What the world around the chip is like.
    void setRssi(std::int8_t dbm);
    void setDtmPackets(std::uint16_t count);
    void addBond(const Address& peer, std::uint8_t addressType);

    // The air side. Phone is the comfortable way to use it.
    [[nodiscard]] AirState air() const;
    [[nodiscard]] LinkState link() const;
    /// False when the chip does not advertise connectably or has a connection. Unsubscribed at first.
    bool connectPeer(RadioPeer& peer, const Address& address);
    /// Ends the connection of this peer, if it has it. @p reason goes to the host (0x0213 = by the peer).
    void disconnectPeer(const RadioPeer& peer, std::uint16_t reason);
    /// A write of @p value (1 to 255 bytes) to the characteristic: a Write Request when @p withResponse,
    /// a Write Command otherwise. False when this peer has no connection.
    bool peerWrite(const RadioPeer& peer, std::uint16_t characteristic, ByteSpan value, bool withResponse);
    bool peerRead(const RadioPeer& peer, std::uint16_t characteristic);
    bool peerSubscribe(const RadioPeer& peer, bool enable);
    /// The peer asks for pairing; the answers depend on what the host has configured.
    bool peerPair(const RadioPeer& peer);
    bool peerPasskey(const RadioPeer& peer, std::uint32_t passkey);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};
}  // namespace efr32sim
