#pragma once

#include "An760.h"
#include "BriscaStateManager.h"
#include "IoEfr32ManagerI.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

/// What happened below the states, in order.
using Calls = std::vector<std::string>;

class FakeResetLine : public IoEfr32ManagerI
{
public:
    explicit FakeResetLine(Calls& calls) : m_calls(calls) {}
    void resetEfr32(bool holdInReset) override { m_calls.push_back(holdInReset ? "hold in reset" : "pulse"); }

private:
    Calls& m_calls;
};

/// A bootloader console whose attempts are scripted, one character each; the last one repeats:
/// 'x' the port cannot be opened, 'c' the carriage return fails, 'n' no prompt comes, 'P' the prompt comes.
class FakeBootloader : public An760
{
public:
    explicit FakeBootloader(Calls& calls) : An760("/nonexistent"), m_calls(calls) {}

    bool open() override
    {
        if (!m_attempts.empty())
            m_attempt = m_attempts.front();
        if (m_attempts.size() > 1)
            m_attempts.erase(0, 1);
        m_calls.push_back("open");
        return m_attempt != 'x';
    }
    void close() override { m_calls.push_back("close"); }
    bool sendCarriageReturn() override { return m_attempt != 'c'; }
    bool waitCommandPrompt(std::vector<char>& received) override
    {
        for (const char byte : std::string("menu"))
            received.push_back(byte);
        return m_attempt == 'P';
    }
    bool startFirmware() override
    {
        m_calls.push_back("start firmware");
        return false;
    }
    void updateFirmware(const QString& filePath) override
    {
        m_calls.push_back("update from " + filePath.toStdString());
    }

    void script(std::string attempts) { m_attempts = std::move(attempts); }

private:
    Calls& m_calls;
    std::string m_attempts = "P";
    char m_attempt = 'P';
};
