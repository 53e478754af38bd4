#include "Station.h"

#include "BluetoothManager.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace endtoend {
namespace {
constexpr const char* kTty = "/dev/evse/tty_efr32";

testsupport::UniqueFd openPipe(const char* path, int flags)
{
    testsupport::UniqueFd fd(::open(path, flags | O_CLOEXEC));
    if (fd.get() < 0)
        throw std::system_error(errno, std::generic_category(), path);
    return fd;
}

int millisecondsUntil(std::chrono::steady_clock::time_point deadline)
{
    const auto left = std::chrono::ceil<Milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<Milliseconds::rep>(left.count(), 0));
}
}  // namespace

Application::Application()
    : m_requests(openPipe("/tmp/ttyBleRx", O_RDONLY | O_NONBLOCK)),
      m_answers(openPipe("/tmp/ttyBleTx", O_WRONLY))
{
}

std::optional<Bytes> Application::read(std::size_t count,
                                       std::chrono::steady_clock::time_point deadline) const
{
    Bytes bytes(count);
    std::size_t got = 0;
    while (got < count) {
        pollfd ready{m_requests.get(), POLLIN, 0};
        if (::poll(&ready, 1, millisecondsUntil(deadline)) <= 0)
            return std::nullopt;
        const ssize_t part = ::read(m_requests.get(), bytes.data() + got, count - got);
        if (part > 0)
            got += static_cast<std::size_t>(part);
    }
    return bytes;
}

std::optional<Bytes> Application::waitRequest(Milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    const auto header = read(2, deadline);
    if (!header)
        return std::nullopt;
    return read(static_cast<std::size_t>((*header)[0] | (*header)[1] << 8), deadline);
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
    if (::write(m_answers.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        throw std::system_error(errno, std::generic_category(), "answer");
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
