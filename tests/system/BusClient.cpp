#include "BusClient.h"
#include "Testing.h"

#include <systemd/sd-bus.h>

namespace {
constexpr const char* kService = "org.voltra.brisca";
constexpr const char* kInterface = "brisca.service";
constexpr std::uint64_t kCallLimitUs = 60'000'000;

std::string firstArgument(sd_bus_message* message)
{
    char type = 0;
    if (sd_bus_message_peek_type(message, &type, nullptr) <= 0)
        return "";
    const char* text = "";
    int number = 0;
    if (type == 's') {
        sd_bus_message_read(message, "s", &text);
        return text;
    }
    sd_bus_message_read(message, type == 'b' ? "b" : "i", &number);
    return type != 'b' ? std::to_string(number) : number != 0 ? "true" : "false";
}

int takeSignal(sd_bus_message* message, void* signals, sd_bus_error*)
{
    const std::string argument = firstArgument(message);
    const std::string name = sd_bus_message_get_member(message);
    static_cast<std::vector<std::string>*>(signals)->push_back(argument.empty() ? name
                                                                                : name + " " + argument);
    return 0;
}
}  // namespace

void BusClient::Closer::operator()(sd_bus* bus) const
{
    sd_bus_flush_close_unref(bus);
}

BusClient::BusClient()
{
    sd_bus* bus = nullptr;
    if (!waitUntil([&bus] { return sd_bus_open_system(&bus) >= 0; }))
        throw std::runtime_error("no bus");
    m_bus.reset(bus);
    sd_bus_set_method_call_timeout(bus, kCallLimitUs);
    // By path and interface, so that the match also holds for a service that starts later.
    sd_bus_match_signal(bus, nullptr, nullptr, "/", kInterface, nullptr, takeSignal, &m_signals);
}

std::string BusClient::callMember(const char* interface, const std::string& method, const char* types,
                                  const std::string& argument)
{
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    const int outcome = sd_bus_call_method(m_bus.get(), kService, "/", interface, method.c_str(), &error,
                                           &reply, types, argument.c_str());
    const std::string result = outcome < 0 ? std::string("error ") + error.name : firstArgument(reply);
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    return result;
}

std::string BusClient::call(const std::string& method, const std::string& argument)
{
    return callMember(kInterface, method, argument.empty() ? "" : "s", argument);
}

void BusClient::send(const std::string& method, const std::string& argument)
{
    sd_bus_call_method_async(m_bus.get(), nullptr, kService, "/", kInterface, method.c_str(), nullptr,
                             nullptr, argument.empty() ? "" : "s", argument.c_str());
    sd_bus_flush(m_bus.get());
}

std::string BusClient::introspect()
{
    return callMember("org.freedesktop.DBus.Introspectable", "Introspect", "", "");
}

bool BusClient::nameIsOwned()
{
    return sd_bus_get_name_creds(m_bus.get(), kService, 0, nullptr) >= 0;
}

void BusClient::dispatch()
{
    while (sd_bus_process(m_bus.get(), nullptr) > 0) {
    }
}

std::string BusClient::waitSignal()
{
    (void)waitUntil([this] {
        dispatch();
        return !m_signals.empty();
    });
    if (m_signals.empty())
        return "";
    const std::string first = m_signals.front();
    m_signals.erase(m_signals.begin());
    return first;
}

std::vector<std::string> BusClient::pendingSignals()
{
    dispatch();
    return std::exchange(m_signals, {});
}
