#pragma once

#include "Station.h"

/// A station whose application is the test itself, and a phone that has connected.
class StationFixture : public testing::Test
{
protected:
    StationFixture();
    ~StationFixture() override;

    /// Writes one frame of the phone and waits until the application has it.
    void sendRequest(endtoend::ByteSpan request);
    /// The payload of the next answer, put together from its notifications, of which a busy station sends
    /// some again: a response of the chip that took longer than 10 ms is a lost one. The length must be one
    /// that the frame format carries well.
    endtoend::Bytes waitAnswer();
    /// A request and its answer pass.
    void expectService();

    static endtoend::Station& station();
    static endtoend::Application& application() { return *station().application; }
    efr32sim::Phone phone{station().chip};

private:
    endtoend::Bytes m_lastNotification;
};
