#pragma once

#include "Brisca.h"
#include "GBSSlave.h"
#include "Testing.h"
#include "efr32sim/Chip.h"
#include "efr32sim/Phone.h"
#include "facade/LogFacade.h"

#include <iostream>

using efr32sim::Bytes;
using efr32sim::CommandId;
using efr32sim::EventKind;
using efr32sim::Phone;

constexpr CommandId kStartAdvertising{0x03, 0x14};

/// A chip's event that is this command.
inline efr32sim::EventCursor::Filter isCommand(CommandId wanted)
{
    return [wanted](const efr32sim::Event& event) {
        return event.number("class") == wanted.classId && event.number("id") == wanted.id;
    };
}

/// The bridge of this process over a simulated chip that runs its firmware. The stack object lives as long as
/// the tasks, that is to the end of the process; every test has a chip of its own.
class SimulatedStation : public testing::Test
{
protected:
    SimulatedStation()
    {
        LogFacade::setLevel("Brisca", LogLevel::Trace);
        chip.start();
        auto booted = chip.followFromStart();
        EXPECT_TRUE(booted.waitFor(EventKind::BootSent));
    }
    ~SimulatedStation() override
    {
        GBSSlave_LetGoLine();
        if (HasFailure())
            std::cerr << capture.text() << chip.events().dump();
    }

    static Brisca& stack()
    {
        static Brisca& instance = *new Brisca;
        return instance;
    }
    static void onEvent(unsigned eventId, gecko_cmd_packet*)
    {
        constexpr unsigned kBoot = 0x000100A0;
        constexpr unsigned kClosed = 0x010800A0;
        if (eventId == kBoot || eventId == kClosed)
            stack().startAdvertising(0);
    }

    bool init(const QString& name = QStringLiteral("Voltra"))
    {
        return stack().init(chip.slavePath().c_str(), {0x4CF4, 0x0100}, name, onEvent) == 1;
    }
    /// As every entry of the firmware state: reset, initialise, start, boot.
    bool enter(const QString& name = QStringLiteral("Voltra"))
    {
        GBSSlave_LetGoLine();
        const bool started = init(name) && stack().startStack() == 1;
        chip.reboot();
        return started;
    }

    efr32sim::Chip chip{{.powerOn = efr32sim::Mode::Firmware}};
    StdoutCapture capture;
};
