// From the application to the phone, byte for byte on the air.

#include "BluetoothManager.h"
#include "StationFixture.h"

namespace {
using endtoend::Bytes;
using endtoend::message;

class Answers : public StationFixture
{
protected:
    /// What the phone must see of an answer, cut by the simulator's own encoder.
    static std::vector<Bytes> fragmentsOf(const Bytes& answer, std::uint8_t frameNumber)
    {
        Bytes whole = {static_cast<std::uint8_t>(answer.size() >> 8),
                       static_cast<std::uint8_t>(answer.size())};
        whole.insert(whole.end(), answer.begin(), answer.end());
        efr32sim::FragmentEncoder encoder(efr32sim::kStationFrame);
        encoder.setNextFrame(frameNumber);
        return encoder.encode(whole);
    }

    /// Number of the next frame: one more than that of an answer sent for the purpose.
    std::uint8_t nextFrame()
    {
        application().answer(Bytes{0});
        const auto sent = notifications(1);
        return sent.empty() ? 0 : ((sent[0][0] >> 4) + 1) & 7;
    }
};

struct OddRow
{
    std::size_t answer;     // bytes; the message is 2 longer
    std::size_t announced;  // bytes of the last notification: (message + 1) modulo 256
    bool sent = true;       // not when it exceeds the MTU (247) less 3, or is 253 to 255
};

TEST_F(Answers, WhoseLastFrameIsOneFragmentAnnounceTooMuchAndEndInZeroes)
{
    expectService();
    std::uint8_t frame = nextFrame();
    for (const OddRow& row :
         {OddRow{1119, 98}, {2239, 194}, {2290, 245, false}, {2301, 0}, {3427, 102}, {2298, 253, false}}) {
        SCOPED_TRACE(row.answer);
        const Bytes answer = message(row.answer, 1);
        application().answer(answer);
        std::vector<Bytes> expected = fragmentsOf(answer, frame);
        frame = ((expected.back()[0] >> 4) + 1) & 7;
        expected.back().resize(row.announced, 0);
        if (!row.sent)
            expected.pop_back();
        EXPECT_EQ(notifications(expected.size()), expected);
    }
    // The last one was given up after its attempts; it has used its frame number up.
    EXPECT_EQ(nextFrame(), (frame + 1) & 7);
}

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
