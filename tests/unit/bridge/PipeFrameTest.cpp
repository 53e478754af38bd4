#include "PipeFrame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <numeric>
#include <string>
#include <vector>

namespace {
using Bytes = std::vector<std::uint8_t>;
using Status = PipeFrameReader::Status;

Bytes counting(std::size_t count)
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    return bytes;
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes toBytes(std::span<const std::uint8_t> bytes)
{
    return {bytes.begin(), bytes.end()};
}

/// A pipe that holds what the test has put in.
class ScriptedStream : public ByteStreamI
{
public:
    ssize_t read(std::span<std::uint8_t> buffer) override
    {
        if (incoming.empty())
            return nothing;
        const std::size_t count = std::min(buffer.size(), incoming.size());
        std::copy_n(incoming.begin(), count, buffer.begin());
        incoming.erase(incoming.begin(), incoming.begin() + static_cast<long>(count));
        return static_cast<ssize_t>(count);
    }
    ssize_t write(std::span<const std::uint8_t>) override { return -1; }

    std::deque<std::uint8_t> incoming;
    ssize_t nothing = -1;
};

struct ReadRow
{
    const char* name;
    Bytes incoming;
    std::vector<Status> statuses;
    Bytes message;  // of the last Frame
};

TEST(PipeFrameReaderTest, TakesFramesOutOfTheStream)
{
    const ReadRow rows[] = {
        {"an empty pipe is nothing", {}, {}, {}},
        {"five bytes become seven",
         Bytes{0, 0, 0, 5} + counting(5),
         {Status::Frame},
         Bytes{0, 5} + counting(5)},
        {"the first two bytes are ignored", {0xFF, 0x80, 0, 1, 9}, {Status::Frame}, {0, 1, 9}},
        {"the largest answer",
         Bytes{0, 0, 0x11, 0x7B} + counting(4475),
         {Status::Frame},
         Bytes{0x11, 0x7B} + counting(4475)},
        {"length 0 is invalid", {0, 0, 0, 0}, {Status::InvalidLength}, {}},
        {"one too long is invalid", {0, 0, 0x11, 0x7C}, {Status::InvalidLength}, {}},
        {"what follows an invalid length is the next header",
         {0, 0, 0xFF, 0xFF, 7, 7, 0, 2, 1, 2},
         {Status::InvalidLength, Status::Frame},
         {0, 2, 1, 2}},
        {"a header without payload is dropped", {0, 0, 0, 5}, {Status::PayloadMissing}, {}},
        {"a short payload goes out under its announced length",
         {0, 0, 0, 5, 1, 2},
         {Status::Frame},
         {0, 5, 1, 2}},
        {"two frames are two polls",
         {0, 0, 0, 1, 8, 0, 0, 0, 1, 9},
         {Status::Frame, Status::Frame},
         {0, 1, 9}},
    };
    for (const ReadRow& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedStream stream;
        stream.incoming.assign(row.incoming.begin(), row.incoming.end());
        PipeFrameReader reader;
        Bytes message;
        for (const Status expected : row.statuses) {
            ASSERT_EQ(reader.poll(stream), expected);
            if (expected == Status::Frame)
                message = toBytes(reader.message());
        }
        EXPECT_EQ(message, row.message);
        EXPECT_EQ(reader.poll(stream), Status::Nothing);
    }
}

TEST(PipeFrameReaderTest, AHeaderThatComesInPiecesIsCompleted)
{
    for (std::size_t cut = 1; cut < kAnswerHeaderSize; ++cut) {
        const Bytes frame{1, 2, 0, 3, 7, 8, 9};
        ScriptedStream stream;
        stream.nothing = cut % 2 == 0 ? -1 : 0;
        stream.incoming.assign(frame.begin(), frame.begin() + static_cast<long>(cut));
        PipeFrameReader reader;
        EXPECT_EQ(reader.poll(stream), Status::Nothing);
        EXPECT_EQ(reader.poll(stream), Status::Nothing) << "an empty read keeps what came, cut at " << cut;
        stream.incoming.assign(frame.begin() + static_cast<long>(cut), frame.end());
        EXPECT_EQ(reader.poll(stream), Status::Frame);
        EXPECT_EQ(toBytes(reader.header()), (Bytes{1, 2, 0, 3}));
        EXPECT_EQ(toBytes(reader.message()), (Bytes{0, 3, 7, 8, 9}));
    }
}
}  // namespace
