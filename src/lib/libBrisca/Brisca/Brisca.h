#pragma once

#include <QString>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>

struct gecko_cmd_packet;

/// The stack object: joins the BLE peripheral stack, the BTP transport and the local CoAP application, which
/// talks to it through two named pipes, and gives the station its identity on the air.
///
/// There is one in a process, because its tasks are created once and live until the process ends. The
/// operations are called on the service's main thread; those that say so also on the event task.
class Brisca
{
public:
    /// What the station advertises besides its address. On the air the first value is little-endian and the
    /// second big-endian.
    struct ManufacturerData
    {
        std::uint16_t first = 0;
        std::uint16_t second = 0;
    };

    /// Receives every event of the co-processor, on the event task.
    /// @param eventId the packet's header with the length bits cleared, for example 0x000100A0 for a boot
    using EventsCallback = void (*)(unsigned int eventId, gecko_cmd_packet* packet);

    Brisca();
    ~Brisca();
    Brisca(const Brisca&) = delete;
    Brisca& operator=(const Brisca&) = delete;

    /// Forgets what an earlier start began on either way, takes the serial line, makes both pipes ready and
    /// empty, and stores the identity for the advertising.
    /// May be called any number of times: what is open already is kept.
    /// @param uart serial device of the chip
    /// @param name device name; 31 bytes of its UTF-8 form are used
    /// @return 1, or 0 with one log line when the device or a pipe cannot be used
    [[nodiscard]] int init(const char* uart, ManufacturerData data, const QString& name,
                           EventsCallback callback);

    /// Starts the bridge: the first call of the process creates and starts the five tasks, a later one lets
    /// the event task, which a chip reset suspended, handle events again.
    /// @return 1
    int startStack();

    /// Link state: 0 disabled, 1 ready, 2 advertising, 4 connected; -1 for anything above 4. Any thread.
    [[nodiscard]] int getBriscaState() const;

    /// The station's BLE address, asked from the chip: 12 lowercase hexadecimal digits, most significant byte
    /// first, without separators; empty when the chip does not answer. Any thread but not under a stack lock.
    [[nodiscard]] QString getBLEAddress() const;

    /// Builds both advertising payloads and sends them to the chip: flags and manufacturer data (with the BLE
    /// address) to be advertised, the complete local name as scan response. Main thread or event task.
    /// @return 1 when the chip accepted the advertising data, else 0
    [[nodiscard]] int UpdateManufacturerSpecificData();

    /// Sends the advertising payloads and starts advertising, asking every 20 ms until the chip agrees or the
    /// serial line is let go or a phone is connected. Data that the chip refuses is one ERROR line, and
    /// nothing is advertised. Main thread or event task.
    /// @param interval how long to advertise, in units of 10 ms; 0 until something stops it
    void startAdvertising(unsigned short interval);

    /// Stops advertising and sets up anew, security included, what a restart of the chip loses; the station
    /// advertises until something stops it. Event task.
    /// @return false when a step failed, or a phone has just connected: nothing but the stop was sent then
    [[nodiscard]] bool refreshAdvertising();

    /// Tells the chip how phones pair with a station that has neither input nor output. Main thread or event
    /// task.
    /// @return whether the chip took it
    bool configureSecurity();

    /// Time since the event pump has last shown that it does not hang; nothing before the first startStack()
    /// of the process. A turn takes about 10 ms without work and less than 10 s with whatever the chip makes
    /// of it. Any thread.
    [[nodiscard]] static std::optional<std::chrono::milliseconds> pumpSilence();

    /// The device name given to init(). Any thread.
    [[nodiscard]] static QString GetDeviceName();
    /// The event callback given to init(). Any thread.
    [[nodiscard]] static EventsCallback GetEventsCallback();

    /// How long the chip has answered nothing, since startStack() at the longest; 0 while the stack is not
    /// started. Any thread.
    [[nodiscard]] std::chrono::milliseconds silence() const;

    /// The chip has been silent for so long that it should be reset.
    using SilenceCallback = void (*)();
    /// Any thread; the callback comes on the event task.
    static void setSilenceCallback(SilenceCallback callback) { s_silenceCallback = callback; }
    /// Calls it. Event task.
    static void tellSilence();

    /// True between startStack() and the next init(), while the serial line is held. Any thread.
    [[nodiscard]] bool isStarted() const;

private:
    [[nodiscard]] int CreatePipes();
    [[nodiscard]] ManufacturerData manufacturerData() const;

    const QString m_txPipePath;           // the application writes, the bridge reads
    const QString m_rxPipePath;           // the bridge writes, the application reads
    ManufacturerData m_manufacturerData;  // guarded by s_identityLock
    std::atomic<bool> m_started{false};
    std::atomic<std::chrono::steady_clock::time_point> m_startedAt{};

    static std::mutex s_identityLock;
    static QString m_DeviceName;  // guarded by s_identityLock
    static std::atomic<EventsCallback> m_AppEventsCallback;
    static std::atomic<SilenceCallback> s_silenceCallback;
};
