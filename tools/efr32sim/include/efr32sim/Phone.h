#pragma once

#include "efr32sim/AdStructures.h"
#include "efr32sim/Chip.h"
#include "efr32sim/Types.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace efr32sim {
struct PhoneOptions
{
    Address address{0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6};  ///< least significant byte first
    bool subscribe = true;          ///< connect() enables notifications, as an app does first of all
    bool withResponse = false;      ///< messages go as Write Requests instead of Write Commands
    Milliseconds writeInterval{0};  ///< pause between the fragments of a message
};

/// What a scan has found.
struct ScanResult
{
    AirState air;
    AdStructures advertising;
    AdStructures scanResponse;
};

/// One simulated phone near one chip. Must not outlive the chip. Any thread may call it.
class Phone
{
public:
    static constexpr Milliseconds kPatience{30000};
    /// Reason of a connection's end that the host is told: the phone's user ended it.
    static constexpr std::uint16_t kClosedByPhone = 0x0213;
    /// The phone went out of range.
    static constexpr std::uint16_t kOutOfRange = 0x0208;

    explicit Phone(Chip& chip, PhoneOptions options = {});
    ~Phone();
    Phone(const Phone&) = delete;
    Phone& operator=(const Phone&) = delete;

    /// What is on the air, waiting up to @p limit for the chip to advertise.
    std::optional<ScanResult> scan(Milliseconds limit = kPatience);
    /// Connects, waiting up to @p limit for the chip to advertise connectably.
    bool connect(Milliseconds limit = kPatience);
    void disconnect(std::uint16_t reason = kClosedByPhone);
    [[nodiscard]] bool connected() const;
    /// Waits until the connection has ended, by whichever side.
    bool waitDisconnected(Milliseconds limit = kPatience);
    bool subscribe(bool enable);

    /// One Write Command, as it stands.
    bool writeCommand(ByteSpan value);
    /// One Write Request; the ATT error of the host's answer (0 = success), nothing when none came.
    std::optional<std::uint8_t> writeRequest(ByteSpan value, Milliseconds limit = kPatience);
    /// One Read Request: the value, or nothing when the host refused or did not answer.
    std::optional<Bytes> read(std::uint16_t characteristic, Milliseconds limit = kPatience);
    /// Cuts a message into fragments and writes them all; false when one was not accepted.
    bool writeMessage(ByteSpan message);
    bool writeMessage(std::string_view message);

    /// The next whole message of the station, without its length bytes. Messages queue up.
    std::optional<Bytes> waitMessage(Milliseconds limit = kPatience);
    /// The next notification as it came. Notifications queue up beside the messages made of them.
    std::optional<Bytes> waitNotification(Milliseconds limit = kPatience);
    /// Everything that broke the fragment format since the phone was made.
    [[nodiscard]] std::vector<std::string> violations() const;

    /// Starts pairing; the outcome arrives as event Bonded or BondingFailed.
    bool pair();
    /// Types the passkey that the station shows.
    bool enterPasskey(std::uint32_t passkey);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};
}  // namespace efr32sim
