#pragma once

#include "BusClient.h"
#include "Process.h"
#include "Testing.h"
#include "efr32sim/Chip.h"
#include "efr32sim/Phone.h"

#include <condition_variable>
#include <deque>
#include <mutex>

/// The socket on which systemd is told what becomes of a service. Read all the time, as systemd does: the
/// kernel keeps about ten notifications, and the next one would block the service.
class NotifySocket
{
public:
    NotifySocket();
    /// The next notification that is no status; "" when none came in time.
    [[nodiscard]] std::string wait(std::chrono::milliseconds limit = std::chrono::seconds(60));
    /// Throws away what has come.
    void drain();
    /// What "systemctl status" would show.
    [[nodiscard]] std::string status();

private:
    void read(const std::stop_token& stop);

    UniqueFd m_socket;
    std::mutex m_lock;
    std::condition_variable m_news;
    std::deque<std::string> m_notifications;
    std::string m_status;
    std::jthread m_reader;  // ended before what it uses
};

/// A whole station in the sandbox of this test: a bus, a simulated chip, the stand-in of the CoAP application
/// and the real service. Prints the service's log and the chip's events when the test fails.
class Station : public testing::Test
{
protected:
    static constexpr const char* kLog = "/tmp/service.log";
    static constexpr const char* kImage = "/tmp/image.gbl";

    Station();
    ~Station() override;

    /// What makes a service tell this test that it is ready.
    static Process::Environment notified();
    /// @param script a shell script in the application's place, in which $APPLICATION is the stand-in
    void installApplication(const std::string& script = {});
    /// Starts a bus and connects the client to it.
    void startBus();
    /// Starts the service and waits until it has told that it is ready.
    void startService(const Process::Environment& environment = {});
    /// Starts the service and takes it to BOOTLOADER, FIRMWARE (advertising), DISABLED or ERROR.
    void startIn(const std::string& state, const Process::Environment& environment = {});

    [[nodiscard]] std::string log() const;
    /// Where the log ends now, for the functions below.
    [[nodiscard]] std::size_t mark() const { return log().size(); }
    /// Waits until a text has been logged behind a mark.
    [[nodiscard]] bool waitLog(const std::string& text, std::size_t from = 0) const;
    /// Lines behind a mark that contain one of the texts, from their level on, in order.
    [[nodiscard]] std::vector<std::string> linesWith(const std::vector<std::string>& texts,
                                                     std::size_t from = 0) const;

    std::optional<Process> bus;
    efr32sim::Chip chip;
    std::optional<BusClient> client;
    NotifySocket notify;
    std::unique_ptr<Process> service;
};

/// Values of "getBriscaState".
inline constexpr const char* kBootloader = "1";
inline constexpr const char* kFirmware = "2";
inline constexpr const char* kDisabled = "3";
inline constexpr const char* kError = "4";
