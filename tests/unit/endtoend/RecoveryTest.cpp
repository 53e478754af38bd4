// A chip that answers nothing: the firmware state enters itself anew, with a real bootloader dialogue.

#include "An760.h"
#include "BluetoothManager.h"
#include "BriscaStateManager.h"
#include "EventPump.h"
#include "FirmwareState.h"
#include "IoEfr32Manager.h"
#include "LinuxOutputPin.h"
#include "Station.h"

#include <QCoreApplication>

namespace {
constexpr const char* kTty = "/dev/evse/tty_efr32";
constexpr const char* kReset = "/dev/evse/io_efr32_reset";
constexpr const char* kApplication = "/evse/app/bin/chp";

class Recovery : public testing::Test
{
protected:
    Recovery()
    {
        std::ofstream(kApplication) << "#!/bin/sh\nexec sleep 1000\n";
        std::filesystem::permissions(kApplication, std::filesystem::perms::owner_all);
        EventPump::setWatchPeriod(endtoend::Milliseconds(400));
        BluetoothManager::instance().setUartName(kTty);
        QObject::connect(&BluetoothManager::instance(), &BluetoothManager::bleIsStarted, &m_application,
                         [this] { ++m_boots; });
        m_manager.registerStateHandler(FIRMWARE, m_firmware);
    }
    ~Recovery() override
    {
        m_firmware.onExit();
        if (HasFailure())
            std::fputs((m_log.text() + m_chip->events().dump()).c_str(), stderr);
    }

    void enter(endtoend::Milliseconds bootDelay = endtoend::Milliseconds(300))
    {
        m_chip.emplace(efr32sim::ChipOptions{.ttyPath = kTty, .resetPath = kReset, .bootDelay = bootDelay});
        m_chip->start();
        m_manager.switchState(FIRMWARE);
    }
    /// Lets the main thread work until this line has been written.
    [[nodiscard]] bool logs(const std::string& text) const
    {
        return waitUntil([&] {
            QCoreApplication::processEvents();
            return m_log.contains(text);
        });
    }
    /// The next phone's request reaches the application.
    void expectService()
    {
        efr32sim::Phone phone(*m_chip);
        ASSERT_TRUE(phone.connect());
        endtoend::Application application;
        const endtoend::Bytes request = endtoend::message(100);
        ASSERT_TRUE(phone.writeMessage(request));
        EXPECT_EQ(application.waitRequest(), request);
        QCoreApplication::processEvents();
    }

    int m_argc = 0;
    QCoreApplication m_application{m_argc, nullptr};
    StdoutCapture m_log;
    std::optional<efr32sim::Chip> m_chip;
    BriscaStateManager m_manager;
    LinuxOutputPin m_pin{kReset};
    IoEfr32Manager m_resetLine{m_pin};
    An760 m_console{kTty};
    FirmwareState m_firmware{m_manager, m_resetLine, m_console};
    int m_boots = 0;
};

const std::string kSilence = "<WARN > [Brisca] The chip has answered nothing for ";
const std::string kReentry = "<NOTIC> [BriscaService.states.FirmwareState] The chip is silent, ";

TEST_F(Recovery, AChipThatWasResetAloneIsBroughtBack)
{
    enter();
    expectService();
    EXPECT_EQ(m_boots, 1);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(waitUntil([begin] {  // until it has answered once more
        const auto now = std::chrono::steady_clock::now();
        return EventPump::chipSilence() + 1ms <= now - begin;
    }));
    m_chip->setReset(false);
    m_chip->setReset(true);
    EXPECT_TRUE(logs(kReentry));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 2 * EventPump::reportedSilence());
    EXPECT_EQ(m_log.count(kSilence), 1);
    EXPECT_THAT(m_log.text(), testing::ContainsRegex("nothing for [0-9]+ s, since [0-9-]+ [0-9:]+ UTC"));
    expectService();
    EXPECT_EQ(m_boots, 2);
    EXPECT_FALSE(BluetoothManager::instance().chipSilentSince());
}

TEST_F(Recovery, AChipThatCannotBeBroughtBackIsLeftToACommander)
{
    enter();
    expectService();
    m_chip->hangUp();
    EXPECT_TRUE(logs("<WARN > [BriscaService.states.FirmwareState] The chip did not come back."));
    EXPECT_EQ(m_log.count(kReentry), 1);
    EXPECT_EQ(m_manager.getCurrentState(), ERROR);
}

TEST_F(Recovery, AChipThatBootsBeforeTheLineIsOpenIsServedAndAnnounced)
{
    enter(endtoend::Milliseconds(0));
    EXPECT_TRUE(logs("<NOTIC> [NCP_MANAGER] Event lost: the chip has booted"));
    expectService();
    EXPECT_EQ(m_boots, 1);
}
}  // namespace
