#pragma once

#include "Packet.h"
#include "Pairing.h"
#include "UserMessages.h"

#include <map>
#include <optional>

namespace efr32sim {
/// Results that a command can have, as the co-processor's protocol numbers them.
enum class CommandResult : std::uint16_t {
    Success = 0,
    InvalidConnection = 0x0101,
    InvalidParameter = 0x0180,
    WrongState = 0x0181,
    NotImplemented = 0x0183,
    UnknownAttribute = 0x0401,
};

/// The co-processor firmware: commands from the host, one connection, one phone.
class Coprocessor : private Pairing::Listener
{
public:
    explicit Coprocessor(Board& board);

    /// Forgets all volatile state. Ends a connection for the phone's side.
    void reset();
    /// Sends the boot event and answers commands from now on.
    void boot();
    void feed(ByteSpan bytes);

    void sendEvent(CommandId id, Bytes payload);
    /// The report of an RSSI reading, also used where any event will do.
    void sendRssi();

    // The air side.
    [[nodiscard]] const AirState& air() const { return m_state.air; }
    [[nodiscard]] const LinkState& link() const { return m_state.link; }
    [[nodiscard]] bool owns(const RadioPeer& peer) const { return m_state.peer == &peer; }
    bool connect(RadioPeer& peer, const Address& address);
    void disconnect(std::uint16_t reason);
    bool write(std::uint16_t characteristic, ByteSpan value, bool withResponse);
    bool read(std::uint16_t characteristic);
    bool subscribe(bool enable);
    bool pair();
    bool passkey(std::uint32_t passkey) { return m_pairing.peerPasskey(passkey); }

    void setRssi(std::int8_t dbm) { m_rssi = dbm; }
    void setDtmPackets(std::uint16_t count) { m_dtmPackets = count; }

private:
    struct Attribute
    {
        Bytes type;
        Bytes value;
    };

    /// A command's answer: the response's payload, or nothing where the protocol has no response.
    using Answer = std::optional<Bytes>;
    struct Command
    {
        CommandId id;
        const char* name;
        const char* layout;  ///< its payload: digits are fields of so many bytes, 'a' is a byte array
        Answer (Coprocessor::*run)(Reader& arguments);
    };
    static const Command* find(CommandId id);

    void execute(const Packet& packet);
    [[nodiscard]] Answer run(const Command& command, const Packet& packet);
    void respond(CommandId id, const Bytes& payload);
    void sendResponse(CommandId id, const Bytes& payload);
    void sendPacket(std::uint8_t type, const Packet& packet);
    void releaseEvents();
    [[nodiscard]] bool isLink(std::uint8_t connection) const;

    // Commands, by class. Defined in Commands.cpp, GattCommands.cpp and SecurityCommands.cpp.
    Answer dfuReset(Reader& in);
    Answer systemHello(Reader& in);
    Answer systemReset(Reader& in);
    Answer systemGetAddress(Reader& in);
    Answer systemSetTxPower(Reader& in);
    Answer systemHalt(Reader& in);
    Answer gapEndProcedure(Reader& in);
    Answer gapSetAdvertisingData(Reader& in);
    Answer gapSetAdvertisingTiming(Reader& in);
    Answer gapSetChannelMap(Reader& in);
    Answer gapStartAdvertising(Reader& in);
    Answer gapStopAdvertising(Reader& in);
    Answer gapSetConnectionTiming(Reader& in);
    Answer connectionGetRssi(Reader& in);
    Answer connectionClose(Reader& in);
    Answer gattSetNotification(Reader& in);
    Answer serverReadValue(Reader& in);
    Answer serverReadType(Reader& in);
    Answer serverWriteValue(Reader& in);
    Answer serverReadResponse(Reader& in);
    Answer serverWriteResponse(Reader& in);
    Answer serverNotify(Reader& in);
    Answer serverFindAttribute(Reader& in);
    Answer testTransmit(Reader& in);
    Answer testReceive(Reader& in);
    Answer testEnd(Reader& in);
    Answer securityBondable(Reader& in);
    Answer securityConfigure(Reader& in);
    Answer securityStoreConfiguration(Reader& in);
    Answer securityIncrease(Reader& in);
    Answer securityDeleteBonding(Reader& in);
    Answer securityDeleteBondings(Reader& in);
    Answer securityEnterPasskey(Reader& in);
    Answer securityConfirmPasskey(Reader& in);
    Answer securityListBondings(Reader& in);
    Answer securityConfirmBonding(Reader& in);
    Answer securitySetPasskey(Reader& in);
    Answer userMessage(Reader& in);

    void pairingEvent(std::uint8_t id, Bytes payload) override;
    void paired(std::uint8_t bonding) override;
    void stopAdvertising(const char* why);
    void reportTest(std::uint16_t packets);

    /// What a reset forgets.
    struct State
    {
        AirState air;
        LinkState link;
        RadioPeer* peer = nullptr;
        bool running = false;
        bool testing = false;
        std::map<std::uint16_t, Attribute> attributes;
    };

    Board& m_board;
    Pairing m_pairing;
    UserMessages m_userMessages;
    PacketReader m_reader;
    State m_state;
    unsigned m_advertisingRun = 0;  // counts starts, so that an old duration ends nothing
    std::int8_t m_rssi = -60;
    std::uint16_t m_dtmPackets = 0;
    bool m_answering = false;      // events wait until the response has gone
    std::vector<Packet> m_events;  // those that wait
};
}  // namespace efr32sim
