#include "efr32sim/Chip.h"

#include "ChipImpl.h"

namespace efr32sim {
Chip::Chip(ChipOptions options) : m_impl(std::make_unique<Impl>(std::move(options))) {}

Chip::~Chip() = default;

void Chip::start()
{
    m_impl->start();
}

void Chip::stop()
{
    m_impl->stop();
}

std::string Chip::slavePath() const
{
    return m_impl->look([](const Impl& chip) { return chip.m_line.slavePath(); });
}

Mode Chip::mode() const
{
    return m_impl->look([](const Impl& chip) { return chip.m_mode; });
}

std::uint16_t Chip::characteristic() const
{
    return m_impl->look([](const Impl& chip) { return chip.m_options.characteristic; });
}

EventCursor Chip::follow() const
{
    return m_impl->m_events.cursor();
}

EventCursor Chip::followFromStart() const
{
    return m_impl->m_events.cursor(true);
}

const EventLog& Chip::events() const
{
    return m_impl->m_events;
}

EventLog& Chip::events()
{
    return m_impl->m_events;
}

void Chip::setReset(bool high)
{
    m_impl->setReset(high);
}

Bytes Chip::image() const
{
    return m_impl->look([](const Impl& chip) { return chip.m_flash.image; });
}

unsigned Chip::imageCount() const
{
    return m_impl->look([](const Impl& chip) { return chip.m_flash.imageCount; });
}

void Chip::setConsoleTexts(std::string menu, std::string prompt, std::string information)
{
    setConsoleText(ConsoleText::Menu, std::move(menu));
    setConsoleText(ConsoleText::Prompt, std::move(prompt));
    setConsoleText(ConsoleText::Information, std::move(information));
}

void Chip::setConsoleText(ConsoleText which, std::string text)
{
    m_impl->locked([&](Impl& chip) {
        switch (which) {
            case ConsoleText::Menu:
                chip.m_options.menu = std::move(text);
                break;
            case ConsoleText::Prompt:
                chip.m_options.prompt = std::move(text);
                break;
            case ConsoleText::Information:
                chip.m_options.information = std::move(text);
                break;
        }
    });
}

void Chip::inject(const Fault& fault)
{
    m_impl->locked([&](Impl& chip) { chip.inject(fault); });
}

void Chip::clearFaults()
{
    m_impl->locked([](Impl& chip) { chip.clearFaults(); });
}

void Chip::setChaos(std::optional<std::uint64_t> seed, double rate)
{
    m_impl->locked([&](Impl& chip) { chip.setChaos(seed, rate); });
}

void Chip::reboot()
{
    m_impl->locked([](Impl& chip) { chip.reboot(); });
}

void Chip::hangUp()
{
    m_impl->requestLine(false);
}

void Chip::plugIn()
{
    m_impl->requestLine(true);
}

bool Chip::sendEvent(std::uint8_t classId, std::uint8_t id, ByteSpan payload)
{
    return m_impl->locked([&](Impl& chip) {
        if (chip.m_mode != Mode::Firmware || payload.size() > kPacketPayload)
            return false;
        chip.m_coprocessor.sendEvent({classId, id}, Bytes(payload.begin(), payload.end()));
        return true;
    });
}

bool Chip::sendBurst(unsigned count)
{
    return m_impl->locked([count](Impl& chip) {
        for (unsigned i = 0; i < count && chip.m_mode == Mode::Firmware; ++i)
            chip.m_coprocessor.sendRssi();
        return chip.m_mode == Mode::Firmware;
    });
}

bool Chip::sendRaw(ByteSpan bytes)
{
    return m_impl->locked([&](Impl& chip) {
        chip.say(bytes);
        return chip.m_mode != Mode::Held;
    });
}

void Chip::setRssi(std::int8_t dbm)
{
    m_impl->locked([dbm](Impl& chip) { chip.m_coprocessor.setRssi(dbm); });
}

void Chip::setDtmPackets(std::uint16_t count)
{
    m_impl->locked([count](Impl& chip) { chip.m_coprocessor.setDtmPackets(count); });
}

void Chip::addBond(const Address& peer, std::uint8_t addressType)
{
    m_impl->locked([&](Impl& chip) { chip.m_flash.addBond(peer, addressType); });
}

AirState Chip::air() const
{
    return m_impl->look([](const Impl& chip) { return chip.m_coprocessor.air(); });
}

LinkState Chip::link() const
{
    return m_impl->look([](const Impl& chip) { return chip.m_coprocessor.link(); });
}

bool Chip::connectPeer(RadioPeer& peer, const Address& address)
{
    return m_impl->locked([&](Impl& chip) { return chip.m_coprocessor.connect(peer, address); });
}

void Chip::disconnectPeer(const RadioPeer& peer, std::uint16_t reason)
{
    m_impl->locked([&](Impl& chip) {
        if (chip.m_coprocessor.owns(peer))
            chip.m_coprocessor.disconnect(reason);
    });
}

bool Chip::peerWrite(const RadioPeer& peer, std::uint16_t characteristic, ByteSpan value, bool withResponse)
{
    return m_impl->locked([&](Impl& chip) {
        return chip.m_coprocessor.owns(peer) && chip.m_coprocessor.write(characteristic, value, withResponse);
    });
}

bool Chip::peerRead(const RadioPeer& peer, std::uint16_t characteristic)
{
    return m_impl->locked(
        [&](Impl& chip) { return chip.m_coprocessor.owns(peer) && chip.m_coprocessor.read(characteristic); });
}

bool Chip::peerSubscribe(const RadioPeer& peer, bool enable)
{
    return m_impl->locked(
        [&](Impl& chip) { return chip.m_coprocessor.owns(peer) && chip.m_coprocessor.subscribe(enable); });
}

bool Chip::peerPair(const RadioPeer& peer)
{
    return m_impl->locked(
        [&](Impl& chip) { return chip.m_coprocessor.owns(peer) && chip.m_coprocessor.pair(); });
}

bool Chip::peerPasskey(const RadioPeer& peer, std::uint32_t passkey)
{
    return m_impl->locked(
        [&](Impl& chip) { return chip.m_coprocessor.owns(peer) && chip.m_coprocessor.passkey(passkey); });
}
}  // namespace efr32sim
