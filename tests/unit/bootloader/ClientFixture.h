#pragma once

#include "An760.h"
#include "Testing.h"
#include "facade/LogFacade.h"

#include <QCoreApplication>

/// An application with an event loop and a bootloader client's log lines.
class ClientFixture : public testing::Test
{
protected:
    ClientFixture()
    {
        LogFacade::setLevel("BriscaService", LogLevel::Notic);
        LogFacade::setLevel("BriscaService.comm.An760", LogLevel::Debug);
        LogFacade::setLevel("BriscaService.FwUpdateWorker", LogLevel::Debug);
    }

    /// While every operation but close() must fail.
    static void expectRefusals(An760& client)
    {
        QString version = "of before";
        std::vector<char> received;
        EXPECT_FALSE(client.sendCarriageReturn());
        EXPECT_FALSE(client.send('x'));
        EXPECT_FALSE(client.startFirmware());
        EXPECT_FALSE(client.getFirmwareVersion(version));
        EXPECT_EQ(version, "");
        client.updateFirmware("/nowhere/image");
        EXPECT_FALSE(client.waitCommandPrompt(received));
        EXPECT_TRUE(received.empty());
    }

    int argc = 0;
    QCoreApplication application{argc, nullptr};
    TempDir directory;
    StdoutCapture log;
};
