// From the application to the phone, byte for byte on the air.

#include "BluetoothManager.h"
#include "StationFixture.h"
#include "facade/LogFacade.h"

namespace {
using endtoend::Bytes;
using endtoend::message;

using Answers = StationFixture;

TEST_F(Answers, ToAPhoneThatHasGoneNeverReachTheNextOne)
{
    for (int round = 0; round < 6; ++round) {
        SCOPED_TRACE(round);
        efr32sim::Phone before(station().chip);
        phone.disconnect();
        ASSERT_TRUE(before.connect());
        ASSERT_TRUE(before.writeMessage("all"));
        EXPECT_EQ(application().waitRequest(), (Bytes{'a', 'l', 'l'}));
        application().answer(message(4475));
        for (std::size_t length = 1; length <= 5; ++length)
            application().answer(message(length));
        ASSERT_TRUE(before.waitNotification());
        if (round % 2 == 0)
            before.disconnect();
        else
            station().start();
        ASSERT_TRUE(phone.connect());
        expectService();
    }
}

TEST_F(Answers, OfAStationWithoutAPhoneAreTakenOutOfThePipe)
{
    LogFacade::setLevel("Brisca", LogLevel::Debug);
    const StdoutCapture output;
    constexpr int kAnswers = 5000;
    const Bytes answer{0, 0, 0, 4, 'l', 'a', 't', 'e'};
    Bytes bytes;
    for (int number = 0; number < kAnswers; ++number)
        bytes.insert(bytes.end(), answer.begin(), answer.end());
    bytes.insert(bytes.end(), answer.begin(), answer.end() - 2);
    expectService();
    // The event task is busy as long as the chip does not advertise again.
    station().chip.inject(
        {.kind = efr32sim::FaultKind::ErrorResponse, .count = 0, .command = efr32sim::CommandId{0x03, 0x14}});
    phone.disconnect();
    application().write(bytes);
    ASSERT_TRUE(waitUntil([&] { return output.contains(" answers that no phone awaits"); }));
    station().chip.clearFaults();
    ASSERT_TRUE(phone.connect());
    sendRequest(Bytes(1, '?'));
    application().write(Bytes{'t', 'e'});
    application().answer(Bytes{'g', 'o', 'o', 'd'});
    EXPECT_EQ(waitAnswer(), (Bytes{'g', 'o', 'o', 'd'}));
}

TEST_F(Answers, ReachAPhoneWhoseBeginningWasLost)
{
    expectService();
    phone.disconnect();
    station().chip.inject(
        {.kind = efr32sim::FaultKind::LostEvent, .command = efr32sim::CommandId{0x08, 0x00}});
    ASSERT_TRUE(phone.connect());
    expectService();
    EXPECT_NE(BluetoothManager::instance().getBleState(), 4) << "before the loss is noticed";
}
}  // namespace
