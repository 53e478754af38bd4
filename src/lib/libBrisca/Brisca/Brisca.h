#pragma once

#include "LinkI.h"

#include <QString>
#include <atomic>
#include <cstdint>
#include <mutex>

struct gecko_cmd_packet;

/// The stack object: joins the BLE peripheral stack, the BTP transport and the local CoAP application, which
/// talks to it through two named pipes, and gives the station its identity on the air.
///
/// There is one in a process, because its tasks are created once and live until the process ends. The
/// operations are called on the service's main thread; those that say so also on the event task.
class Brisca : private LinkI
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
    ~Brisca() override;
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

    /// Tells the chip how phones pair with a station that has neither input nor output. Main thread or event
    /// task.
    /// @return whether the chip took it
    bool configureSecurity();

    /// The device name given to init(). Any thread.
    [[nodiscard]] static QString GetDeviceName();
    /// The event callback given to init(). Any thread.
    [[nodiscard]] static EventsCallback GetEventsCallback() { return m_AppEventsCallback; }

    /// Hands that name to the stack: the first 31 bytes of its UTF-8 form, whatever character they cut. A
    /// name that begins with 0x00 or 0xFF counts as none. Runs on the caller of the local-name builders, one
    /// at a time, under the stack's locks.
    /// @param length receives the number of bytes, 0 to 31; null gives null
    /// @return the name, valid until the next call
    static std::uint8_t* giveDeviceName(std::uint8_t* length);

private:
    [[nodiscard]] int CreatePipes();
    [[nodiscard]] ManufacturerData manufacturerData() const;
    [[nodiscard]] State look() const override;
    [[nodiscard]] tGBS_LinkCheck check() override;
    void advertise() override;
    [[nodiscard]] bool refresh() override;

    const QString m_txPipePath;           // the application writes, the bridge reads
    const QString m_rxPipePath;           // the bridge writes, the application reads
    ManufacturerData m_manufacturerData;  // guarded by s_identityLock

    inline static std::mutex s_identityLock;
    inline static QString m_DeviceName;  // guarded by s_identityLock
    inline static std::atomic<EventsCallback> m_AppEventsCallback{nullptr};
};
