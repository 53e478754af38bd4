#include "Coprocessor.h"

#include <algorithm>

namespace efr32sim {
namespace {
constexpr std::uint16_t kConnectionLost = 0x0208;  // supervision timeout, as the phone sees a chip die
constexpr CommandId kBootEvent{0x01, 0x00};
constexpr CommandId kRssiEvent{0x08, 0x03};
constexpr Bytes::value_type kOversizeLength = 0x01;  // with bit 8 in the first byte: 257
constexpr std::uint16_t kNameAttribute = 11;
}  // namespace

Coprocessor::Coprocessor(Board& board) : m_board(board), m_pairing(board, *this), m_userMessages(board)
{
    reset();
}

void Coprocessor::reset()
{
    if (m_state.peer != nullptr) {
        m_board.report(EventKind::Disconnected, {{"reason", kConnectionLost}, {"by", "reset"}});
        m_state.peer->onDisconnected(kConnectionLost);
    }
    if (m_state.air.advertising)
        stopAdvertising("reset");
    m_state = {};
    m_state.air.address = m_board.options().address;
    const std::string name = "EFR32_NCP";
    m_state.attributes[kNameAttribute] = {{0x00, 0x2A}, Bytes(name.begin(), name.end())};  // Device Name
    m_state.attributes[m_board.options().characteristic] = {{0x01, 0xFF}, {}};
    m_pairing.reset();
    m_userMessages.reset();
    m_reader.reset();
    m_events.clear();
}

void Coprocessor::boot()
{
    m_state.running = true;
    const ChipOptions& options = m_board.options();
    if (m_board.faults().take(FaultKind::LostBoot))
        return;
    Writer payload;
    for (const std::uint16_t part : options.version)
        payload.u16(part);
    m_board.report(EventKind::BootSent, {});
    sendEvent(kBootEvent, payload.u32(options.bootloaderVersion).u16(options.hardware).take());
}

void Coprocessor::feed(ByteSpan bytes)
{
    if (!m_state.running)
        return;
    const PacketReader::Result result = m_reader.feed(bytes, Clock::now());
    if (!result.refused.empty())
        m_board.report(EventKind::PacketRefused, {{"bytes", result.refused}});
    for (const Packet& packet : result.packets) {
        execute(packet);
        if (!m_state.running)  // the command restarted the chip: what follows is heard by nobody
            return;
    }
}

void Coprocessor::execute(const Packet& packet)
{
    const Command* command = find(packet.id);
    m_board.report(EventKind::Command, {{"class", packet.id.classId},
                                        {"id", packet.id.id},
                                        {"name", command != nullptr ? command->name : "unknown"},
                                        {"payload", packet.payload}});
    m_answering = true;
    Answer answer;
    if (const auto fault = m_board.faults().take(FaultKind::ErrorResponse, packet.id))
        answer = Writer().u16(fault->result).take();
    else if (command != nullptr)
        answer = run(*command, packet);
    else
        answer = Writer().u16(static_cast<std::size_t>(CommandResult::NotImplemented)).take();
    m_answering = false;
    if (answer)
        respond(packet.id, *answer);
    else
        releaseEvents();
}

Coprocessor::Answer Coprocessor::run(const Command& command, const Packet& packet)
{
    Reader check(packet.payload);
    for (const char* field = command.layout; *field != '\0'; ++field) {
        if (*field == 'a')
            check.array();
        else
            check.raw(static_cast<std::size_t>(*field - '0'));
    }
    if (!check.exact())
        return Writer().u16(static_cast<std::size_t>(CommandResult::InvalidParameter)).take();
    Reader arguments(packet.payload);
    return (this->*command.run)(arguments);
}

void Coprocessor::respond(CommandId id, const Bytes& payload)
{
    FaultPlan& faults = m_board.faults();
    if (faults.take(FaultKind::EventBeforeResponse, id))
        sendRssi();
    if (faults.take(FaultKind::LostResponse, id)) {
        releaseEvents();
    } else if (const auto fault = faults.take(FaultKind::LateResponse, id)) {
        m_board.after(fault->delay, [this, id, payload] { sendResponse(id, payload); });
    } else {
        sendResponse(id, payload);
    }
}

void Coprocessor::sendResponse(CommandId id, const Bytes& payload)
{
    m_board.report(EventKind::Response, {{"class", id.classId}, {"id", id.id}, {"payload", payload}});
    sendPacket(kCommandType, {id, payload});
    releaseEvents();
}

void Coprocessor::releaseEvents()
{
    std::vector<Packet> events;
    events.swap(m_events);
    for (Packet& event : events)
        sendEvent(event.id, std::move(event.payload));
}

void Coprocessor::sendEvent(CommandId id, Bytes payload)
{
    if (m_answering) {
        m_events.push_back({id, std::move(payload)});
        return;
    }
    if (m_board.faults().take(FaultKind::LostEvent, id))
        return;
    m_board.report(EventKind::ChipEvent, {{"class", id.classId}, {"id", id.id}, {"payload", payload}});
    sendPacket(kEventType, {id, std::move(payload)});
}

void Coprocessor::sendPacket(std::uint8_t type, const Packet& packet)
{
    const auto takeFault = [&](FaultKind kind) {
        return m_board.faults().take(kind, packet.id,
                                     type == kEventType ? PacketType::Event : PacketType::Response);
    };
    if (const auto fault = takeFault(FaultKind::NoiseBeforePacket))
        m_board.say(fault->bytes.empty() ? Bytes{0x00, 0xFF, 0x7F} : fault->bytes);
    if (takeFault(FaultKind::OversizeHeader))
        m_board.say(
            Bytes{static_cast<std::uint8_t>(type | 1), kOversizeLength, packet.id.classId, packet.id.id});
    Bytes bytes = encodePacket(type, packet);
    if (const auto fault = takeFault(FaultKind::FlippedBit))
        bytes[fault->length / 8 % bytes.size()] ^= static_cast<std::uint8_t>(1 << fault->length % 8);
    if (const auto fault = takeFault(FaultKind::CutPacket))
        bytes.resize(std::min(fault->length, bytes.size()));
    if (takeFault(FaultKind::DoublePacket))
        m_board.say(bytes);
    m_board.say(bytes);
}

void Coprocessor::sendRssi()
{
    const Bytes payload = Writer().u8(kConnection).u8(0).u8(static_cast<std::uint8_t>(m_rssi)).take();
    sendEvent(kRssiEvent, payload);
}

bool Coprocessor::connect(RadioPeer& peer, const Address& address)
{
    if (!m_state.running || !m_state.air.connectable || m_state.link.connected)
        return false;
    stopAdvertising("connected");
    m_state.peer = &peer;
    m_state.link = {.connected = true, .peer = address};
    for (const Flash::Bond& bond : m_board.flash().bonds) {
        if (bond.address == address)
            m_state.link.bonding = bond.handle;
    }
    m_board.report(EventKind::Connected, {{"peer", toText(address)}, {"bonding", m_state.link.bonding}});
    const std::size_t bonding = m_state.link.bonding;
    sendEvent({0x08, 0x00}, Writer().raw(address).u8(0).u8(0).u8(kConnection).u8(bonding).u8(0).take());
    sendEvent({0x08, 0x02}, Writer().u8(kConnection).u16(24).u16(0).u16(500).u8(0).u16(27).take());
    sendEvent({0x08, 0x04}, Writer().u8(kConnection).u8(1).take());
    sendEvent({0x09, 0x00}, Writer().u8(kConnection).u16(m_board.options().attMtu).take());
    return true;
}

void Coprocessor::disconnect(std::uint16_t reason)
{
    RadioPeer* peer = std::exchange(m_state.peer, nullptr);
    if (peer == nullptr)
        return;
    m_state.link = {};
    m_pairing.stop();
    m_board.report(EventKind::Disconnected, {{"reason", reason}});
    peer->onDisconnected(reason);
    sendEvent({0x08, 0x01}, Writer().u16(reason).u8(kConnection).take());
}

bool Coprocessor::isLink(std::uint8_t connection) const
{
    return m_state.link.connected && connection == kConnection;
}

void Coprocessor::pairingEvent(std::uint8_t id, Bytes payload)
{
    sendEvent({0x0F, id}, std::move(payload));
}

void Coprocessor::paired(std::uint8_t bonding)
{
    m_state.link.encrypted = true;
    m_state.link.bonding = bonding;
    sendEvent({0x08, 0x02}, Writer().u8(kConnection).u16(24).u16(0).u16(500).u8(1).u16(27).take());
}

void Coprocessor::stopAdvertising(const char* why)
{
    if (!m_state.air.advertising)
        return;
    m_state.air.advertising = m_state.air.connectable = false;
    m_board.report(EventKind::Advertising, {{"on", 0}, {"why", why}});
}
}  // namespace efr32sim
