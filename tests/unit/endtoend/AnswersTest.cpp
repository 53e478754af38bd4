// From the application to the phone, byte for byte on the air.

#include "BluetoothManager.h"
#include "StationFixture.h"

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
