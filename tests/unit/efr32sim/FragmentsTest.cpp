#include "Testing.h"
#include "efr32sim/Fragments.h"

using namespace efr32sim;

namespace {
/// Header byte and payload length of a fragment.
using Shapes = std::vector<std::pair<int, std::size_t>>;

/// A whole first frame of a message of two: 16 and 15 times 69 bytes.
Shapes frameAnd(std::initializer_list<std::pair<int, std::size_t>> second)
{
    Shapes all{{0x80, 16}};
    for (int header = 0x0F; header >= 0; --header)
        all.emplace_back(header, 69);
    all.insert(all.end(), second);
    return all;
}

TEST(Reassembler, DeliversOrComplains)
{
    for (const auto& [name, length, fragments, messages, violation] :
         Rows<std::uint16_t, Shapes, int, std::string>{
             {"second frame of two fragments", 1188, frameAnd({{0x91, 1}, {0x10, 69}}), 1, ""},
             {"last frame filled up to sixty nine", 1148, frameAnd({{0x90, 69}}), 1, "69 bytes where 30"},
             {"seventy payload bytes", 68, {{0x80, 70}}, 0, "fragment of 71 bytes"},
             {"no first fragment", 68, {{0x00, 69}}, 0, "outside any frame"},
             {"fragment missing", 137, {{0x82, 1}, {0x00, 69}}, 0, "fragment 0 where 1"},
             {"fragment twice", 137, {{0x82, 1}, {0x01, 69}, {0x01, 69}}, 0, "fragment 1 where 0"},
             {"short following fragment", 68, {{0x81, 1}, {0x00, 68}}, 0, "68 payload bytes"},
             {"fragment of another frame", 68, {{0x81, 1}, {0x10, 69}}, 0, "frame 1 inside frame 0"},
             {"frame broken off", 1, {{0x81, 1}, {0x90, 3}}, 0, "before the last one"},
             {"frame number skipped", 1188, frameAnd({{0xA1, 1}, {0x20, 69}}), 0, "frame 2 after frame 0"},
             {"frame shorter than announced", 100, {{0x80, 50}}, 0, "50 bytes where 102"},
             {"frame longer than announced", 10, {{0x80, 40}}, 1, "40 bytes where 12"},
         }) {
        SCOPED_TRACE(name);
        Reassembler reassembler;
        std::string violations;
        int whole = 0;
        std::size_t at = 0;
        const auto next = [&] { return static_cast<std::uint8_t>(at < 2 ? length >> (8 - 8 * at) : at); };
        for (const auto& [header, size] : fragments) {
            Bytes fragment{static_cast<std::uint8_t>(header)};
            for (std::size_t i = 0; i < size; ++i, ++at)
                fragment.push_back(next());
            const Reassembler::Result result = reassembler.accept(fragment);
            for (const std::string& text : result.violations)
                violations += text;
            whole += result.message ? 1 : 0;
            EXPECT_EQ(result.message.value_or(Bytes(length)).size(), length);
        }
        EXPECT_EQ(whole, messages);
        EXPECT_EQ(violations.empty(), violation.empty()) << violations;
        EXPECT_NE(violations.find(violation), std::string::npos) << violations;
    }
}
}  // namespace
