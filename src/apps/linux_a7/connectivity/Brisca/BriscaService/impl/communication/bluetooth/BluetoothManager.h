#pragma once

#include "Brisca.h"

#include <QObject>
#include <QString>
#include <atomic>
#include <chrono>
#include <optional>

/// The one object through which the rest of the service reaches the BLE stack.
///
/// Operations belong to the main thread. The signals are emitted on the stack's event task: connect receivers
/// that live on another thread with the default (automatic) type, which queues them.
class BluetoothManager : public QObject
{
    Q_OBJECT
public:
    /// Created on first use, destroyed at exit.
    static BluetoothManager& instance();

    /// Names the serial device of the chip, in ASCII; null gives an empty name.
    void setUartName(const char* name);
    /// Initialises the stack: takes the serial line, prepares the pipes, hands over the current name.
    /// @return false, with an ERROR line, without a device name or when the stack refuses
    [[nodiscard]] bool initBleCom();
    /// Starts the stack; the chip's next boot event then starts advertising and emits bleIsStarted().
    /// @return false, with a WARN line, when the stack has booted already since the last reset
    [[nodiscard]] bool start();
    /// Forgets that the stack has booted. The stack's tasks live on.
    void stop();

    /// Renames the station. The name reaches the air at the next initBleCom(); the stack uses its first 31
    /// bytes of UTF-8.
    void setBleName(const QString& name);
    [[nodiscard]] QString getBleName() const { return m_bleName; }
    /// 12 lowercase hexadecimal digits, most significant byte first; empty when the chip does not answer.
    [[nodiscard]] QString getBleMacAddress() const;
    /// 0 disabled, 1 ready, 2 advertising, 4 connected, -1 unknown. Any thread.
    [[nodiscard]] int getBleState() const;
    /// The same without waiting for a command of another task, whatever the chip does. Any thread.
    [[nodiscard]] static int peekBleState();

    /// As EventPump::silence().
    [[nodiscard]] static std::optional<std::chrono::milliseconds> pumpSilence();

    /// The chip is about to be, or has just been, reset: forgets that the stack has booted and lets go of the
    /// serial line, so that the stack touches it no more until the next initBleCom() and start(). Bounded.
    void resetBleStartedFlag();

    /// Since when the chip has answered nothing, once that is worth a report (30 s). Any thread.
    [[nodiscard]] static std::optional<std::chrono::system_clock::time_point> chipSilentSince();

    /// Drops the connected phone.
    /// @return 1 when the chip accepted the command, else 0
    unsigned int disconnectDevice();

    /// A phone has connected or gone; emits a signal when that is news. Event task.
    void onConnectionStatusChanged(bool connected);
    /// The stack has booted. Event task.
    void bleIsReady();

    /// Handler of the chip's events, given to the stack. Event task.
    /// @param packet not read
    static void bleEventCallback(unsigned int eventId, gecko_cmd_packet* packet);

Q_SIGNALS:
    void newDeviceConnected();
    void deviceDisconnected();
    /// Part of the interface; nothing emits it today.
    void communicationError();
    void bleIsStarted();
    /// The chip has been silent for so long that the firmware state should be entered anew.
    void chipSilent();

private:
    BluetoothManager();
    ~BluetoothManager() override = default;

    /// How far the announcement of the chip's boot is.
    enum class Boot {
        Awaited,    // since the last reset or stop
        Begun,      // the boot event is being handled
        Announced,  // the stack has started
    };

    void onBoot();
    void advertise();

    QString m_uartName;
    QString m_bleName;
    Brisca::ManufacturerData m_manufacturerData;
    Brisca m_stack;
    std::atomic<bool> m_connected{false};
    std::atomic<Boot> m_boot{Boot::Awaited};
};
