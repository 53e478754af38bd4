#include "Server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace efr32sim {
namespace {
constexpr std::size_t kLineLimit = 65536;
constexpr Milliseconds kEventPatience{100};  // how often a quiet event stream looks whether to end
constexpr int kBacklog = 8;

void raise(int eventfd)
{
    const std::uint64_t one = 1;
    (void)!::write(eventfd, &one, sizeof(one));
}
}  // namespace

Session::Session(int in, int out, int stop, bool json, Chip& chip, Phone& phone, EventCursor events,
                 std::function<void()> quit)
    : m_in(in),
      m_out(out),
      m_stop(stop),
      m_json(json),
      m_origin(chip.events().origin()),
      m_control(chip, phone, std::move(quit)),
      m_bell(events),
      m_events(events),
      m_reader([this] { readCommands(); }),
      m_writer([this] { showEvents(); })
{
}

Session::~Session()
{
    m_ended = true;
    m_reader.join();
    m_writer.join();
}

/// Waits for the descriptor; false when everything ends first.
bool Session::ready(int fd, short events) const
{
    std::array<pollfd, 2> fds{{{fd, events, 0}, {m_stop, POLLIN, 0}}};
    while (!m_ended) {
        const int result = ::poll(fds.data(), fds.size(), static_cast<int>(kEventPatience.count()));
        if (fds[1].revents != 0 || (result < 0 && errno != EINTR))
            return false;
        if (result > 0 && fds[0].revents != 0)
            return true;
    }
    return false;
}

bool Session::fill(std::string& pending) const
{
    std::array<char, 4096> buffer{};
    if (!ready(m_in, POLLIN))
        return false;
    const ssize_t got = ::read(m_in, buffer.data(), buffer.size());
    if (got <= 0)
        return false;
    pending.append(buffer.data(), static_cast<std::size_t>(got));
    return pending.size() <= kLineLimit;
}

void Session::readCommands()
{
    std::string pending;
    while (fill(pending)) {
        for (std::size_t end = 0; (end = pending.find('\n')) != std::string::npos;) {
            answer(std::string_view(pending).substr(0, end));
            pending.erase(0, end + 1);
        }
    }
    // Standard input may end while its events are still read; a socket's client has gone.
    if (m_in == m_out)
        m_ended = true;
}

void Session::answer(std::string_view line)
{
    const Reply reply = m_control.execute(line);
    const std::lock_guard lock(m_output);
    putEvents();
    put(m_json ? toJson(reply) : toLine(reply));
}

void Session::showEvents()
{
    while (!m_ended) {
        if (!m_bell.next(kEventPatience))
            continue;
        const std::lock_guard lock(m_output);
        putEvents();
    }
}

void Session::putEvents()
{
    while (const auto event = m_events.next(Milliseconds(0))) {
        if (m_control.eventsWanted())
            put(m_json ? toJson(*event, m_origin) : toLine(*event, m_origin));
    }
}

void Session::put(std::string line)
{
    line += '\n';
    for (std::string_view rest = line; !rest.empty() && ready(m_out, POLLOUT);) {
        const ssize_t written = ::write(m_out, rest.data(), rest.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            m_ended = true;
            return;
        }
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
}

Server::Server(Config config, Chip& chip, Phone& phone)
    : m_config(std::move(config)),
      m_chip(chip),
      m_phone(phone),
      m_quit(ownOrThrow(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"))
{
    if (!m_config.socketPath.empty())
        listen();
}

Server::~Server()
{
    raise(m_quit.get());
    m_console.reset();
    m_clients.clear();
    if (m_listener)
        ::unlink(m_config.socketPath.c_str());
}

void Server::listen()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_config.socketPath.size() >= sizeof(address.sun_path))
        throw std::system_error(ENAMETOOLONG, std::generic_category(), m_config.socketPath);
    std::memcpy(address.sun_path, m_config.socketPath.data(), m_config.socketPath.size());
    Fd listener = ownOrThrow(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket");
    // A socket that an earlier run left behind refuses connections and may go; one that is served stays.
    if (::connect(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 &&
        errno == ECONNREFUSED)
        ::unlink(m_config.socketPath.c_str());
    if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener.get(), kBacklog) != 0)
        throw std::system_error(errno, std::generic_category(), m_config.socketPath);
    m_listener = std::move(listener);
}

std::unique_ptr<Session> Server::converse(int in, int out, EventCursor events)
{
    return std::make_unique<Session>(in, out, m_quit.get(), m_config.json, m_chip, m_phone, events,
                                     [quit = m_quit.get()] { raise(quit); });
}

void Server::admit()
{
    Fd socket(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket)
        return;
    auto session = converse(socket.get(), socket.get(), m_chip.follow());
    m_clients.push_back({std::move(socket), std::move(session)});
}

void Server::run(int signals)
{
    if (m_config.standardInput)
        m_console = converse(STDIN_FILENO, STDOUT_FILENO, m_chip.followFromStart());
    std::array<pollfd, 3> fds{
        {{m_quit.get(), POLLIN, 0}, {signals, POLLIN, 0}, {m_listener.get(), POLLIN, 0}}};
    do {
        std::erase_if(m_clients, [](const Client& client) { return client.session->ended(); });
        ::poll(fds.data(), fds.size(), 1000);
        if (fds[2].revents != 0)
            admit();
    } while (fds[0].revents == 0 && fds[1].revents == 0);
}
}  // namespace efr32sim
