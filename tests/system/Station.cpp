#include "Station.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <iostream>

namespace {
constexpr const char* kApplication = "/evse/app/bin/chp";
constexpr const char* kBusAddress = "unix:path=/tmp/bus";
constexpr const char* kBusConfiguration = R"(<busconfig>
  <type>system</type>
  <listen>unix:path=/tmp/bus</listen>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
  </policy>
</busconfig>)";
constexpr std::size_t kLevelColumn = 42;
constexpr std::string_view kDrained = "DRAINED";
constexpr sockaddr_un kNotifyAddress = {AF_UNIX, "/tmp/notify"};
const auto* const kNotifyName = reinterpret_cast<const sockaddr*>(&kNotifyAddress);

std::string writeFile(const std::string& path, const std::string& content)
{
    std::ofstream(path) << content;
    return path;
}
}  // namespace

NotifySocket::NotifySocket() : m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    if (::bind(m_socket.get(), kNotifyName, sizeof kNotifyAddress) != 0)
        throw std::runtime_error("no notification socket");
    m_reader = std::jthread([this](const std::stop_token& stop) { read(stop); });
}

void NotifySocket::read(const std::stop_token& stop)
{
    constexpr std::string_view kStatus = "STATUS=";
    pollfd entry = {m_socket.get(), POLLIN, 0};
    while (!stop.stop_requested()) {
        char text[512];
        if (::poll(&entry, 1, 50) != 1)
            continue;
        const ssize_t length = ::recv(m_socket.get(), text, sizeof text, 0);
        const std::string_view told(text, length > 0 ? static_cast<std::size_t>(length) : 0);
        const std::lock_guard lock(m_lock);
        if (told.starts_with(kStatus))
            m_status = told.substr(kStatus.size());
        else
            m_notifications.emplace_back(told);
        m_news.notify_all();
    }
}

std::string NotifySocket::wait(std::chrono::milliseconds limit)
{
    std::unique_lock lock(m_lock);
    if (!m_news.wait_for(lock, limit, [this] { return !m_notifications.empty(); }))
        return "";
    std::string first = m_notifications.front();
    m_notifications.pop_front();
    return first;
}

void NotifySocket::drain()
{
    // Behind everything that the socket still holds.
    if (::sendto(m_socket.get(), kDrained.data(), kDrained.size(), 0, kNotifyName, sizeof kNotifyAddress) < 0)
        throw std::runtime_error("the notification socket takes nothing");
    for (std::string left = wait(); !left.empty() && left != kDrained;)
        left = wait();
}

std::string NotifySocket::status()
{
    const std::lock_guard lock(m_lock);
    return m_status;
}

Station::Station() : chip({.ttyPath = "/dev/evse/tty_efr32", .resetPath = "/dev/evse/io_efr32_reset"})
{
    writeFile("/evse/data/log.cfg", "GLOBAL : DEBUG\n");
    installApplication();
    chip.start();
    ::setenv("TSAN_OPTIONS",
             "suppressions=" TSAN_SUPPRESSIONS " report_signal_unsafe=0 report_thread_leaks=0", 1);
    startBus();
}

Station::~Station()
{
    // A sanitizer that goes on after its report leaves no other trace: most tests end the service by SIGKILL.
    for (const char* const report :
         {"WARNING: ThreadSanitizer", "ERROR: AddressSanitizer", "runtime error: "})
        EXPECT_EQ(log().find(report), std::string::npos) << report;
    if (HasFailure())
        std::cerr << "--- log of the service\n"
                  << log() << "--- events of the chip\n"
                  << chip.events().dump();
    service.reset();
    chip.stop();
}

void Station::installApplication(const std::string& script)
{
    std::filesystem::remove(kApplication);
    if (script.empty()) {
        std::filesystem::create_symlink(APPLICATION_PROGRAM, kApplication);
        return;
    }
    writeFile(kApplication, "#!/bin/sh\nAPPLICATION='" APPLICATION_PROGRAM " coap+ser://tmp/EV3'\n" + script);
    std::filesystem::permissions(kApplication, std::filesystem::perms(0755));
}

void Station::startBus()
{
    const std::string configuration = writeFile("/tmp/bus.conf", kBusConfiguration);
    bus.emplace(
        std::vector<std::string>{"dbus-daemon", "--nofork", "--nopidfile", "--config-file=" + configuration},
        "/tmp/bus.log");
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", kBusAddress, 1);
    client.emplace();
}

Process::Environment Station::notified()
{
    return {std::string("NOTIFY_SOCKET=") + kNotifyAddress.sun_path};
}

void Station::startService(const Process::Environment& environment)
{
    notify.drain();
    Process::Environment all = notified();
    all.insert(all.end(), environment.begin(), environment.end());
    service = std::make_unique<Process>(std::vector<std::string>{SERVICE_PROGRAM}, kLog, all);
    ASSERT_EQ(notify.wait(), "READY=1");
}

void Station::startIn(const std::string& state, const Process::Environment& environment)
{
    if (state == "ERROR")
        chip.hangUp();
    ASSERT_NO_FATAL_FAILURE(startService(environment));
    if (state == "ERROR") {
        chip.plugIn();
        ASSERT_EQ(client->call("getBriscaState"), kError);
    }
    if (state == "BOOTLOADER" || state == "ERROR")
        return;
    auto events = chip.follow();
    client->send("startFirmwareApp");
    ASSERT_EQ(client->waitSignal(), "bleIsStarted");
    ASSERT_TRUE(events.waitFor(efr32sim::EventKind::Advertising));
    if (state == "DISABLED") {
        client->send("disableBluetooth");
        ASSERT_EQ(client->call("getBriscaState"), kDisabled);
    }
}

std::string Station::log() const
{
    return readFile(kLog);
}

bool Station::waitLog(const std::string& text, std::size_t from) const
{
    return waitUntil([&] { return log().find(text, from) != std::string::npos; });
}

std::vector<std::string> Station::linesWith(const std::vector<std::string>& texts, std::size_t from) const
{
    std::vector<std::string> result;
    std::istringstream in(log().substr(from));
    for (std::string line; std::getline(in, line);) {
        const bool wanted = std::any_of(texts.begin(), texts.end(), [&line](const std::string& text) {
            return line.find(text) != std::string::npos;
        });
        if (wanted)
            result.push_back(line.size() > kLevelColumn ? line.substr(kLevelColumn) : line);
    }
    return result;
}
