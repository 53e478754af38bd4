#include "efr32sim/Fragments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

using namespace efr32sim;
using testing::HasSubstr;

namespace {
/// Header byte and payload length of a fragment.
using Shape = std::pair<int, std::size_t>;

Bytes counting(std::size_t size)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

std::vector<Shape> shapes(std::initializer_list<Shape> first, int from, int to)
{
    std::vector<Shape> all(first);
    for (int header = from; header >= to; --header)
        all.emplace_back(header, 69);
    return all;
}

std::vector<Shape> operator+(std::vector<Shape> left, const std::vector<Shape>& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// The fragments of a station's message: shapes filled with the length bytes and counting payload.
std::vector<Bytes> fill(std::size_t payload, const std::vector<Shape>& fragments)
{
    Bytes message{static_cast<std::uint8_t>(payload >> 8), static_cast<std::uint8_t>(payload)};
    const Bytes rest = counting(payload);
    message.insert(message.end(), rest.begin(), rest.end());
    std::vector<Bytes> out;
    std::size_t at = 0;
    for (const auto& [header, size] : fragments) {
        Bytes fragment{static_cast<std::uint8_t>(header)};
        for (std::size_t i = 0; i < size; ++i, ++at)
            fragment.push_back(at < message.size() ? message[at] : 0xEE);
        out.push_back(std::move(fragment));
    }
    return out;
}

struct Arrival
{
    const char* name;
    std::size_t payload;  // as the message announces it
    std::vector<Shape> fragments;
    int messages;                // how many come out whole
    const char* violation = "";  // part of the first one's text
    const char* second = "";
};

TEST(Reassembler, DeliversOrComplains)
{
    const std::vector<Shape> frame0 = shapes({{0x80, 16}}, 0x0F, 0x00);
    const std::vector<Shape> frame1 = shapes({{0x90, 16}}, 0x1F, 0x10);
    const Arrival rows[] = {
        {"sixteen bytes are the start of a station frame", 1118, frame0, 1},
        {"second frame of two fragments", 1188, frame0 + shapes({{0x91, 1}}, 0x10, 0x10), 1},
        {"second frame is a station frame too", 2238, frame0 + frame1, 1},
        {"last frame filled up to sixty nine", 1148, frame0 + std::vector<Shape>{{0x90, 69}}, 1,
         "69 bytes where 30"},
        {"seventy payload bytes", 68, {{0x80, 70}}, 0, "fragment of 71 bytes"},
        {"no first fragment", 68, {{0x00, 69}}, 0, "outside any frame"},
        {"fragment missing", 137, {{0x82, 1}, {0x00, 69}}, 0, "fragment 0 where 1"},
        {"fragment twice", 137, {{0x82, 1}, {0x01, 69}, {0x01, 69}}, 0, "fragment 1 where 0"},
        {"short following fragment", 68, {{0x81, 1}, {0x00, 68}}, 0, "68 payload bytes"},
        {"fragment of another frame", 68, {{0x81, 1}, {0x10, 69}}, 0, "frame 1 inside frame 0"},
        {"frame broken off", 1, {{0x81, 1}, {0x90, 3}}, 0, "before the last one", "3 bytes where 258"},
        {"frame number skipped", 1188, frame0 + shapes({{0xA1, 1}}, 0x20, 0x20), 0, "frame 2 after frame 0",
         "a frame of 70 bytes"},
        {"frame shorter than announced", 100, {{0x80, 50}}, 0, "50 bytes where 102"},
        {"frame longer than announced", 10, {{0x80, 40}}, 1, "40 bytes where 12"},
    };
    for (const Arrival& row : rows) {
        SCOPED_TRACE(row.name);
        Reassembler reassembler;
        std::vector<std::string> violations;
        int messages = 0;
        for (const Bytes& fragment : fill(row.payload, row.fragments)) {
            const Reassembler::Result result = reassembler.accept(fragment);
            violations.insert(violations.end(), result.violations.begin(), result.violations.end());
            if (!result.message)
                continue;
            ++messages;
            EXPECT_EQ(*result.message, counting(row.payload));
        }
        EXPECT_EQ(messages, row.messages);
        std::vector<testing::Matcher<std::string>> expected;
        for (const std::string part : {row.violation, row.second})
            if (!part.empty())
                expected.push_back(HasSubstr(part));
        EXPECT_THAT(violations, testing::ElementsAreArray(expected));
    }
}

TEST(Reassembler, TakesTheNextMessageAfterTheRestOfALostOne)
{
    Reassembler reassembler;
    // The second frame of a message whose first was lost: its first two bytes announce nothing.
    for (const Bytes& fragment : fill(0x6162, shapes({{0x81, 69}}, 0x00, 0x00)))
        EXPECT_FALSE(reassembler.accept(fragment).message);
    EXPECT_EQ(reassembler.accept(fill(3, {{0x90, 5}}).front()).message, counting(3));
}

}  // namespace
