// The bridge when the application writes nonsense or does not read, and what it traces.

#include "StationFixture.h"
#include "facade/LogFacade.h"

namespace {
using efr32sim::FaultKind;
using endtoend::Bytes;

class Pipes : public StationFixture
{
protected:
    Pipes() { LogFacade::setLevel("Brisca", LogLevel::Trace); }
    ~Pipes() override { LogFacade::setLevel("Brisca", LogLevel::Notic); }

    StdoutCapture output;
};

TEST_F(Pipes, WithWrongAnswersReportThemAndCarryTheNextOne)
{
    const Bytes good{0xEE, 0xEE, 0, 4, 'g', 'o', 'o', 'd'};
    const struct
    {
        const char* name;
        Bytes bytes;
        const char* line;
        Bytes next;
    } rows[] = {
        {"length 0", Bytes(4, 0), "<ERROR> [Brisca] 0 is not a valid frame length", good},
        {"one too long", {0, 0, 0x11, 0x7C}, "<ERROR> [Brisca] 4476 is not a valid frame length", good},
        {"no payload", {0, 0, 0, 5}, "<DEBUG> [Brisca] Frame length is 5 but pipe is empty", good},
        {"half a header", Bytes(good.begin(), good.begin() + 2), "", Bytes(good.begin() + 2, good.end())},
    };
    expectService();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        application().write(row.bytes);
        ASSERT_TRUE(waitUntil([&] { return output.contains(row.line); }));
        application().write(row.next);
        EXPECT_EQ(waitAnswer(), (Bytes{'g', 'o', 'o', 'd'}));
    }
}

TEST_F(Pipes, OfAStationWithoutAPhoneAreEmptied)
{
    constexpr int kAnswers = 5000;
    const Bytes answer{0, 0, 0, 4, 'l', 'a', 't', 'e'};
    Bytes bytes;
    for (int number = 0; number < kAnswers; ++number)
        bytes.insert(bytes.end(), answer.begin(), answer.end());
    bytes.insert(bytes.end(), answer.begin(), answer.end() - 2);
    expectService();
    // The event task is busy as long as the chip does not advertise again.
    station().chip.inject(
        {.kind = FaultKind::ErrorResponse, .count = 0, .command = efr32sim::CommandId{0x03, 0x14}});
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

TEST_F(Pipes, ThatAreFullLoseRequestsAndNothingElse)
{
    const UniqueFd pipe(::open("/tmp/ttyBleRx", O_RDWR | O_NONBLOCK | O_CLOEXEC));
    Bytes filling(65'536, 'f');  // the capacity of a pipe
    const auto size = static_cast<ssize_t>(filling.size());
    ASSERT_EQ(::write(pipe.get(), filling.data(), filling.size()), size);
    ASSERT_TRUE(phone.writeMessage("lost"));
    ASSERT_TRUE(waitUntil([&] { return output.count("<DEBUG> [Brisca] Send -1 bytes to Coap") == 2; }));
    EXPECT_EQ(::read(pipe.get(), filling.data(), filling.size()), size);
    expectService();
}
}  // namespace
