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

    static std::string errorLine(const std::string& text)
    {
        return "<ERROR> [BriscaService.comm.An760] " + text;
    }
    static std::string warnLine(const std::string& text)
    {
        return "<WARN > [BriscaService.comm.An760] " + text;
    }
    static std::string debugLine(const std::string& text)
    {
        return "<DEBUG> [BriscaService.comm.An760] " + text;
    }

    int argc = 1;
    char name[5] = "test";
    char* argv[2] = {name, nullptr};
    QCoreApplication application{argc, argv};
    TempDir directory;
    StdoutCapture log;
};

/// The log lines of every operation but close() while all of them must fail.
inline std::vector<std::string> linesOfRefusedOperations(An760& client, StdoutCapture& log)
{
    log.clear();
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
    return log.logLines();
}
