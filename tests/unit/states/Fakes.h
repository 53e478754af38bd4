#pragma once

#include "An760.h"
#include "BriscaStateManager.h"
#include "ImageFile.h"
#include "IoEfr32ManagerI.h"
#include "Testing.h"

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
        m_calls.push_back("open");
        if (m_isOpen)
            return false;
        if (!m_attempts.empty())
            m_attempt = m_attempts.front();
        if (m_attempts.size() > 1)
            m_attempts.erase(0, 1);
        m_isOpen = m_attempt != 'x';
        return m_isOpen;
    }
    void close() override
    {
        m_calls.push_back("close");
        m_isOpen = false;
    }
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
    void uploadImage(const QString& filePath, std::unique_ptr<ImageFile> image) override
    {
        m_calls.push_back("update from " + filePath.toStdString() + (image->isOpen() ? ", open" : ""));
    }

    void script(std::string attempts) { m_attempts = std::move(attempts); }

private:
    Calls& m_calls;
    std::string m_attempts = "P";
    char m_attempt = 'P';
    bool m_isOpen = false;
};
