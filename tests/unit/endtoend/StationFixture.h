#pragma once

#include "Station.h"
#include "efr32sim/Fragments.h"

#include <gtest/gtest.h>

/// A station whose application is the test itself, and a phone that has connected.
class StationFixture : public testing::Test
{
protected:
    StationFixture();
    ~StationFixture() override;

    /// Writes one frame of the phone and waits until the application has it.
    void sendRequest(endtoend::ByteSpan request);
    /// The next notifications as they came on the air.
    std::vector<endtoend::Bytes> notifications(std::size_t count);
    /// A request and its answer pass.
    void expectService();

    static endtoend::Station& station();
    static endtoend::Application& application() { return *station().application; }
    efr32sim::Phone phone{station().chip};
};
