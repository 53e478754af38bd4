// The Bluetooth manager over a simulated chip and phone.

#include "BluetoothManager.h"

#include "SimulatedStation.h"

#include <mutex>

namespace {
using Names = std::vector<std::string>;

/// The order in which signals came, on whatever thread.
class Recorder
{
public:
    explicit Recorder(BluetoothManager& manager)
    {
        for (const auto& [name, signal] :
             Rows<void (BluetoothManager::*)()>{{"newDeviceConnected", &BluetoothManager::newDeviceConnected},
                                                {"deviceDisconnected", &BluetoothManager::deviceDisconnected},
                                                {"communicationError", &BluetoothManager::communicationError},
                                                {"bleIsStarted", &BluetoothManager::bleIsStarted}})
            QObject::connect(
                &manager, signal, &m_context, [this, text = name] { take(text); }, Qt::DirectConnection);
    }
    [[nodiscard]] Names names() const
    {
        const std::lock_guard lock(m_mutex);
        return m_names;
    }
    [[nodiscard]] bool waitForLast(const std::string& name) const
    {
        return waitUntil([&] { return !names().empty() && names().back() == name; });
    }
    [[nodiscard]] bool waitFor(const Names& names) const
    {
        return waitUntil([&] { return this->names() == names; });
    }
    /// Called on the emitting thread, before the signal is recorded.
    void onSignal(std::function<void(const std::string&)> hook)
    {
        const std::lock_guard lock(m_mutex);
        m_hook = std::move(hook);
    }
    void clear()
    {
        const std::lock_guard lock(m_mutex);
        m_names.clear();
    }

private:
    void take(const char* name)
    {
        std::unique_lock lock(m_mutex);
        const auto hook = m_hook;
        lock.unlock();
        if (hook)
            hook(name);
        lock.lock();
        m_names.emplace_back(name);
    }

    QObject m_context;
    mutable std::mutex m_mutex;
    Names m_names;
    std::function<void(const std::string&)> m_hook;
};

class BluetoothManagerTest : public SimulatedStation
{
protected:
    BluetoothManagerTest()
    {
        LogFacade::setLevel("BriscaService", LogLevel::Trace);
        manager.setUartName(chip.slavePath().c_str());
    }
    ~BluetoothManagerTest() override
    {
        signals.onSignal({});
        manager.resetBleStartedFlag();
        manager.onConnectionStatusChanged(false);
    }

    /// As the firmware state enters: reset, initialise, start; the chip boots meanwhile.
    bool enter()
    {
        manager.resetBleStartedFlag();
        const bool started = manager.initBleCom() && manager.start();
        chip.reboot();
        return started;
    }
    bool enterAndWait()
    {
        return enter() && waitUntil([this] { return chip.air().advertising; });
    }
    int count(const char* text) const
    {
        return capture.count(std::string("[BriscaService.comm.BluetoothManager] ") + text);
    }

    BluetoothManager& manager = BluetoothManager::instance();
    Recorder signals{manager};
};

TEST_F(BluetoothManagerTest, OnlyTheFirstBootIsAnnounced)
{
    ASSERT_TRUE(enterAndWait());
    auto events = chip.follow();
    chip.reboot();
    ASSERT_TRUE(
        events.waitFor(EventKind::Advertising, [](const auto& event) { return event.number("on") == 1; }));
    EXPECT_EQ(signals.names(), Names{"bleIsStarted"});

    manager.stop();
    manager.stop();
    EXPECT_EQ(count("Stop the BLE stack"), 1);
    chip.reboot();
    EXPECT_TRUE(signals.waitFor({"bleIsStarted", "bleIsStarted"}));

    ASSERT_TRUE(enter());
    EXPECT_TRUE(signals.waitFor({"bleIsStarted", "bleIsStarted", "bleIsStarted"}));
}

TEST_F(BluetoothManagerTest, TheEndOfAConnectionIsToldOnceTheStationAdvertisesAgain)
{
    ASSERT_TRUE(enterAndWait());
    std::atomic<int> advertisedBefore = 0;
    signals.onSignal([&](const std::string& name) {
        if (name == "deviceDisconnected")
            advertisedBefore = count("[VoltraEventCallback] Start advertising");
    });
    Phone phone(chip);
    ASSERT_TRUE(phone.connect());
    phone.disconnect();
    ASSERT_TRUE(signals.waitFor({"bleIsStarted", "newDeviceConnected", "deviceDisconnected"}));
    EXPECT_EQ(advertisedBefore, 2) << "at the boot and at the end of the connection";
    // The same end once more is no news, but advertised after all the same.
    auto events = chip.follow();
    ASSERT_TRUE(chip.sendEvent(0x08, 0x01, Bytes{0x13, 0x02, 1}));
    EXPECT_TRUE(events.waitFor(EventKind::Command, isCommand(kStartAdvertising)));
    EXPECT_EQ(signals.names().size(), 3U);
    manager.resetBleStartedFlag();
    EXPECT_EQ(manager.disconnectDevice(), 0U);
}

TEST_F(BluetoothManagerTest, ABootUnderAConnectionEndsItFirst)
{
    ASSERT_TRUE(enterAndWait());
    for (const bool byService : {false, true}) {
        SCOPED_TRACE(byService);
        Phone phone(chip);
        ASSERT_TRUE(phone.connect());
        ASSERT_TRUE(signals.waitForLast("newDeviceConnected"));
        signals.clear();
        if (byService)
            ASSERT_TRUE(enter());
        else
            chip.reboot();
        EXPECT_TRUE(byService ? signals.waitFor({"deviceDisconnected", "bleIsStarted"})
                              : signals.waitFor({"deviceDisconnected"}));
        EXPECT_TRUE(waitUntil([&] { return manager.getBleState() == 2; }));
    }
}

TEST_F(BluetoothManagerTest, AResetThatOvertakesABootEventDoesNotBlockTheNextStart)
{
    ASSERT_TRUE(enterAndWait());
    Phone phone(chip);
    ASSERT_TRUE(phone.connect());
    ASSERT_TRUE(signals.waitFor({"bleIsStarted", "newDeviceConnected"}));
    manager.stop();
    // The handling of the boot event begins by reporting the end of the connection; there it is held until
    // the reset is over.
    std::atomic<bool> inBootEvent = false;
    std::atomic<bool> resetDone = false;
    signals.onSignal([&](const std::string& name) {
        if (name != "deviceDisconnected")
            return;
        inBootEvent = true;
        EXPECT_TRUE(waitUntil([&] { return resetDone.load(); }));
    });
    chip.reboot();
    ASSERT_TRUE(waitUntil([&] { return inBootEvent.load(); }));
    manager.resetBleStartedFlag();
    resetDone = true;
    EXPECT_TRUE(waitUntil([&] { return count("[VoltraEventCallback] Start advertising") == 2; }));
    ASSERT_TRUE(manager.initBleCom());
    EXPECT_TRUE(manager.start());
    chip.reboot();
    EXPECT_TRUE(signals.waitForLast("bleIsStarted"));
}

TEST_F(BluetoothManagerTest, AReceiverOnTheEmittingThreadMayReset)
{
    signals.onSignal([&](const std::string&) { manager.resetBleStartedFlag(); });
    for (std::size_t boots = 1; boots <= 2; ++boots) {
        BluetoothManager::bleEventCallback(kGbsEventBoot, nullptr);
        EXPECT_EQ(signals.names().size(), boots) << "each is the first since a reset";
    }
}
}  // namespace
