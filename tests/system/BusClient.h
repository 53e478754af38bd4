#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

struct sd_bus;

/// A program on the bus that uses the service. Results are texts, so that rows of tables compare them: "4",
/// "true", a string as it is, "" for an empty reply, "error NAME" for an error reply.
class BusClient
{
public:
    /// Connects to the system bus of the environment, waiting for it, and listens to the service's signals.
    BusClient();

    [[nodiscard]] std::string call(const std::string& method, const std::string& argument = {});
    /// Sends a call that wants no reply.
    void send(const std::string& method, const std::string& argument = {});
    [[nodiscard]] std::string introspect();
    /// Whether somebody owns the service's name.
    [[nodiscard]] bool nameIsOwned();

    /// The next signal with its argument, e.g. "fwUpdateComplete true"; "" when none came in time.
    [[nodiscard]] std::string waitSignal();
    /// Signals that have come and were not asked for yet.
    [[nodiscard]] std::vector<std::string> pendingSignals();

private:
    struct Closer
    {
        void operator()(sd_bus* bus) const;
    };
    std::string callMember(const char* interface, const std::string& method, const char* types,
                           const std::string& argument);
    void dispatch();

    std::unique_ptr<sd_bus, Closer> m_bus;
    std::vector<std::string> m_signals;
};
