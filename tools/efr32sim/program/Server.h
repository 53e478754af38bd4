#pragma once

#include "Control.h"
#include "Fd.h"

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace efr32sim {
/// One client's conversation: commands come in on one descriptor, replies and events go out on the other.
class Session
{
public:
    /// Does not own the descriptors. @p stop becomes readable when everything ends.
    Session(int in, int out, int stop, bool json, Chip& chip, Phone& phone, EventCursor events,
            std::function<void()> quit);
    ~Session();
    /// The client has gone, or everything ends.
    [[nodiscard]] bool ended() const { return m_ended; }

private:
    void readCommands();
    void showEvents();
    [[nodiscard]] bool fill(std::string& pending) const;
    void answer(std::string_view line);
    void putEvents();
    void put(std::string line);
    [[nodiscard]] bool ready(int fd, short events) const;

    const int m_in;
    const int m_out;
    const int m_stop;
    const bool m_json;
    const Clock::time_point m_origin;
    Control m_control;
    EventCursor m_bell;    // tells the writer that there is something to show
    std::mutex m_output;   // guards m_events and the order of lines: what happened before a reply precedes it
    EventCursor m_events;  // what has been shown
    std::atomic<bool> m_ended{false};
    std::thread m_reader;
    std::thread m_writer;
};

/// Serves standard input and, with a path, a Unix socket.
class Server
{
public:
    struct Config
    {
        std::string socketPath;
        bool json = false;
        bool standardInput = true;
    };
    Server(Config config, Chip& chip, Phone& phone);
    ~Server();
    /// Serves until a "quit" command, or until @p signals becomes readable.
    void run(int signals);

private:
    struct Client
    {
        Fd socket;
        std::unique_ptr<Session> session;
    };
    void listen();
    void admit();
    [[nodiscard]] std::unique_ptr<Session> converse(int in, int out, EventCursor events);

    Config m_config;
    Chip& m_chip;
    Phone& m_phone;
    Fd m_quit;  // eventfd that a "quit" command writes; stays readable
    Fd m_listener;
    std::unique_ptr<Session> m_console;
    std::list<Client> m_clients;
};
}  // namespace efr32sim
