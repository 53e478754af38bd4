#include "HostLine.h"
#include "efr32sim/Phone.h"

using namespace efr32sim;

namespace {
/// A phone connected to a chip whose host has read the events of the connection.
struct Connected : RunningChip
{
    explicit Connected(const PhoneOptions& options = {}) : phone(chip, options)
    {
        EXPECT_EQ(host->command(0x03, 0x14, {0, 4, 2}), "200203140000");
        EXPECT_TRUE(phone.connect());
        for (int events = options.subscribe ? 5 : 4; events > 0; --events)
            host->readPacket();
    }
    Phone phone;
};

TEST(Phone, NotificationsAreRefusedUntilItSubscribesAndCheckedThen)
{
    Connected both({.subscribe = false});
    EXPECT_EQ(both.host->command(0x0A, 0x05, {1, 26, 0, 1, 7}), "20020a058101");
    EXPECT_TRUE(both.phone.subscribe(true));
    EXPECT_EQ(both.host->readPacket(), "a0060a03011a00010100");
    EXPECT_EQ(both.host->command(0x0A, 0x05, {1, 26, 0, 6, 0xB0, 0, 3, 'a', 'b', 'c'}), "20020a050000");
    EXPECT_EQ(both.phone.waitMessage(), (Bytes{'a', 'b', 'c'}));
    EXPECT_TRUE(both.phone.violations().empty());
    both.chip.inject({.kind = FaultKind::RefuseNotification, .result = 0x0182});
    EXPECT_EQ(both.host->command(0x0A, 0x05, {1, 26, 0, 1, 8}), "20020a058201");
}

TEST(Pairing, GoesAsTheCapabilitiesSay)
{
    const auto types = [](std::uint32_t passkey) {
        return [=](Connected& both) { EXPECT_TRUE(both.phone.enterPasskey(passkey)); };
    };
    const auto answers = [](int id, std::initializer_list<int> payload) {
        return [=, bytes = std::vector(payload)](Connected& both) { both.host->command(0x0F, id, bytes); };
    };
    const char* const bonded = "a0020f030100";
    for (const auto& [name, capabilities, flags, asked, answer, outcome] :
         Rows<int, int, const char*, std::function<void(Connected&)>, std::string>{
             {"the phone types", 0, 0, "a0050f000140e20100", types(123456), bonded},
             {"the phone types the wrong passkey", 0, 0, "a0050f000140e20100", types(123457),
              "a0030f04010103"},
             {"the host compares", 1, 0, "a0050f020140e20100", answers(0x09, {1, 1}), bonded},
             {"the host types", 2, 0, "a0010f0101", answers(0x08, {1, 0x40, 0xE2, 0x01, 0x00}), bonded},
             {"the host confirms", 3, 8, "a0020f0901ff", answers(0x0E, {1, 1}), bonded},
         }) {
        SCOPED_TRACE(name);
        Connected both;
        both.host->command(0x0F, 0x00, {1});
        both.host->command(0x0F, 0x01, {flags, capabilities});
        both.host->command(0x0F, 0x10, {0x40, 0xE2, 0x01, 0x00});
        ASSERT_TRUE(both.phone.pair());
        EXPECT_EQ(both.host->readPacket(), asked);
        answer(both);
        EXPECT_EQ(both.host->readPacket(), outcome);
        EXPECT_EQ(both.chip.link().encrypted, outcome == bonded);
        EXPECT_FALSE(both.phone.enterPasskey(123456)) << "nothing waits for it now";
    }
}
}  // namespace
