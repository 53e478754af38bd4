#include "Station.h"

#include "BluetoothManager.h"

#include <system_error>

namespace endtoend {
namespace {
constexpr const char* kTty = "/dev/evse/tty_efr32";

UniqueFd openPipe(const char* path, int flags)
{
    UniqueFd fd(::open(path, flags | O_CLOEXEC));
    if (fd.get() < 0)
        throw std::system_error(errno, std::generic_category(), path);
    return fd;
}
}  // namespace

Application::Application()
    : m_requests(openPipe("/tmp/ttyBleRx", O_RDONLY | O_NONBLOCK)),
      m_answers(openPipe("/tmp/ttyBleTx", O_WRONLY))
{
}

std::optional<Bytes> Application::read(std::size_t count, Milliseconds limit) const
{
    const std::string got = testsupport::readFrom(m_requests.get(), count, limit);
    return got.size() == count ? std::optional(Bytes(got.begin(), got.end())) : std::nullopt;
}

std::optional<Bytes> Application::waitRequest(Milliseconds limit)
{
    const auto header = read(2, limit);
    return header ? read(static_cast<std::size_t>((*header)[0] | (*header)[1] << 8), limit) : std::nullopt;
}

void Application::answer(ByteSpan payload)
{
    Bytes frame = {0, 0, static_cast<std::uint8_t>(payload.size() >> 8),
                   static_cast<std::uint8_t>(payload.size())};
    frame.insert(frame.end(), payload.begin(), payload.end());
    write(frame);
}

void Application::write(ByteSpan bytes) const
{
    testsupport::writeTo(m_answers.get(), {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

Station::Station(bool pace) : chip({.ttyPath = kTty, .pace = pace, .powerOn = efr32sim::Mode::Firmware})
{
    chip.start();
    BluetoothManager::instance().setUartName(kTty);
    start();
    application.emplace();
}

void Station::start()
{
    BluetoothManager& manager = BluetoothManager::instance();
    manager.resetBleStartedFlag();
    if (!manager.initBleCom() || !manager.start())
        throw std::runtime_error("the stack does not start");
    efr32sim::EventCursor events = chip.follow();
    chip.reboot();
    const auto advertises = [](const efr32sim::Event& event) { return event.number("on") == 1; };
    if (!events.waitFor(efr32sim::EventKind::Advertising, advertises))
        throw std::runtime_error("the station does not advertise\n" + chip.events().dump());
}

Bytes message(std::size_t length, unsigned seed)
{
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<std::uint8_t>(i + (i >> 8) + seed);
    return bytes;
}
}  // namespace endtoend
