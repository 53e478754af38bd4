// From the application to the phone, byte for byte on the air.

#include "StationFixture.h"
#include "StdoutCapture.h"
#include "facade/LogFacade.h"

#include <algorithm>

namespace {
using efr32sim::CommandId;
using efr32sim::Fault;
using efr32sim::FaultKind;
using endtoend::Bytes;
using endtoend::message;

constexpr CommandId kNotification{0x0A, 0x05};

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

    /// The notifications up to the frame of this number, in which a further answer is sent.
    std::vector<Bytes> notificationsBefore(int frameNumber)
    {
        application().answer(Bytes{0});
        std::vector<Bytes> seen;
        auto next = notification();
        for (; next && (next->at(0) >> 4 & 7) != frameNumber; next = notification())
            seen.push_back(*next);
        EXPECT_TRUE(next);
        return seen;
    }

    /// Number of the next frame: one more than that of an answer sent for the purpose.
    std::uint8_t nextFrame()
    {
        application().answer(Bytes{0});
        const auto sent = notifications(1);
        return sent.empty() ? 0 : ((sent[0][0] >> 4) + 1) & 7;
    }
};

TEST_F(Answers, OfEverySizeArrive)
{
    std::uint8_t frame = nextFrame();
    for (const std::size_t size :
         {1, 10, 67, 68, 69, 70, 71, 137, 138, 139, 1000, 1103, 1104, 1105, 1118, 1188, 4475}) {
        SCOPED_TRACE(size);
        const Bytes answer = message(size, static_cast<unsigned>(size));
        application().answer(answer);
        const std::vector<Bytes> expected = fragmentsOf(answer, frame);
        EXPECT_EQ(notifications(expected.size()), expected);
        frame = ((expected.back()[0] >> 4) + 1) & 7;
    }
}

struct OddRow
{
    std::size_t answer;     // bytes; the message is 2 longer
    std::size_t announced;  // bytes of the last notification: (message + 1) modulo 256
    bool sent = true;       // not when it exceeds the MTU (247) less 3, or is 253 to 255
};

TEST_F(Answers, WhoseLastFrameIsOneFragmentAnnounceTooMuchAndEndInZeroes)
{
    std::uint8_t frame = nextFrame();
    for (const OddRow& row : {OddRow{1119, 98},
                              {1187, 166},
                              {2239, 194},
                              {2240, 195},
                              {2290, 245, false},
                              {2301, 0},
                              {2302, 1},
                              {2307, 6},
                              {3359, 34},
                              {3427, 102},
                              {2298, 253, false}}) {
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

struct FaultRow
{
    const char* name;
    Fault fault;
    std::vector<std::size_t> seen;  // which fragments of the answer the phone sees, in order
    int unanswered = 0;
};

TEST_F(Answers, SurviveNotificationsThatAreRefusedOrNotAnswered)
{
    const std::vector<FaultRow> rows = {
        {"first refused once", {.kind = FaultKind::RefuseNotification}, {0, 1, 2}},
        {"second refused once", {.kind = FaultKind::RefuseNotification, .skip = 1}, {0, 1, 2}},
        {"first refused twice: given up", {.kind = FaultKind::RefuseNotification, .count = 2}, {}},
        {"last refused twice: given up",
         {.kind = FaultKind::RefuseNotification, .count = 2, .skip = 2},
         {0, 1}},
        {"not answered: sent again",
         {.kind = FaultKind::LostResponse, .command = kNotification},
         {0, 1, 2},
         1},
        {"command fails once", {.kind = FaultKind::ErrorResponse, .command = kNotification}, {0, 1, 2}},
    };
    LogFacade::setLevel("NCP_MANAGER", LogLevel::Info);
    testsupport::StdoutCapture output;
    std::uint8_t frame = nextFrame();
    for (const FaultRow& row : rows) {
        SCOPED_TRACE(row.name);
        bool undisturbed = false;
        // When this machine is too busy to let the chip answer in time, a fault meets the wrong attempt.
        for (int tries = 0; tries < 20 && !undisturbed; ++tries) {
            output.clear();
            const Bytes answer = message(150, 3);
            const std::vector<Bytes> fragments = fragmentsOf(answer, frame);
            station().chip.inject(row.fault);
            application().answer(answer);
            const std::vector<Bytes> seen = notificationsBefore((frame + 1) & 7);
            undisturbed = output.count("NO response") == row.unanswered;
            // Whatever became of it, the answer has used one frame number, and the next one another.
            frame = (frame + 2) & 7;
            if (!undisturbed)
                continue;
            std::vector<Bytes> expected;
            for (const std::size_t index : row.seen)
                expected.push_back(fragments[index]);
            EXPECT_EQ(seen, expected);
        }
        EXPECT_TRUE(undisturbed);
    }
    LogFacade::setLevel("NCP_MANAGER", LogLevel::Notic);
}
}  // namespace
