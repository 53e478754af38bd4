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

/// A pipe whose reads deliver what the test has put in, and one that has room for a number of bytes.
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
    ssize_t write(std::span<const std::uint8_t> bytes) override
    {
        if (room == 0)
            return -1;
        const std::size_t count = std::min(bytes.size(), room);
        room -= count;
        outgoing.insert(outgoing.end(), bytes.begin(), bytes.begin() + static_cast<long>(count));
        return static_cast<ssize_t>(count);
    }

    std::deque<std::uint8_t> incoming;
    Bytes outgoing;
    std::size_t room = 0;
    ssize_t nothing = -1;
};

struct ReadCase
{
    const char* name;
    Bytes incoming;
    std::vector<Status> statuses;
    Bytes message;  // of the last Frame
};

class PipeFrameReaderCases : public testing::TestWithParam<ReadCase>
{
};

TEST_P(PipeFrameReaderCases, GivesItsFrames)
{
    const ReadCase& row = GetParam();
    ScriptedStream stream;
    stream.incoming.assign(row.incoming.begin(), row.incoming.end());
    PipeFrameReader reader;
    Bytes message;
    for (std::size_t index = 0; index < row.statuses.size(); ++index) {
        EXPECT_EQ(reader.poll(stream), row.statuses[index]) << "poll " << index;
        if (row.statuses[index] == Status::Frame)
            message = toBytes(reader.message());
    }
    EXPECT_EQ(message, row.message);
    EXPECT_EQ(reader.poll(stream), Status::Nothing);
}

INSTANTIATE_TEST_SUITE_P(
    Reader, PipeFrameReaderCases,
    testing::Values(
        ReadCase{"AnEmptyPipeIsNothing", {}, {Status::Nothing}, {}},
        ReadCase{"FiveBytesBecomeSeven",
                 Bytes{0, 0, 0, 5} + counting(5),
                 {Status::Frame},
                 Bytes{0, 5} + counting(5)},
        ReadCase{"FirstTwoBytesAreIgnored", Bytes{0xFF, 0x80, 0, 1, 9}, {Status::Frame}, {0, 1, 9}},
        ReadCase{"LargestAnswer",
                 Bytes{0, 0, 0x11, 0x7B} + counting(4475),
                 {Status::Frame},
                 Bytes{0x11, 0x7B} + counting(4475)},
        ReadCase{"LengthZeroIsInvalid", {0, 0, 0, 0}, {Status::InvalidLength}, {}},
        ReadCase{"OneTooLongIsInvalid", {0, 0, 0x11, 0x7C}, {Status::InvalidLength}, {}},
        ReadCase{"LargestNumberIsInvalid", {0, 0, 0xFF, 0xFF}, {Status::InvalidLength}, {}},
        ReadCase{"PayloadOfAnInvalidLengthIsTheNextHeader",
                 Bytes{0, 0, 0, 0, 7, 7, 0, 2, 1, 2},
                 {Status::InvalidLength, Status::Frame},
                 {0, 2, 1, 2}},
        ReadCase{
            "HeaderWithoutPayloadIsDropped", {0, 0, 0, 5}, {Status::PayloadMissing, Status::Nothing}, {}},
        ReadCase{
            "ShortPayloadGoesOutUnderItsAnnouncedLength", {0, 0, 0, 5, 1, 2}, {Status::Frame}, {0, 5, 1, 2}},
        ReadCase{"TwoFramesAreTwoPolls",
                 Bytes{0, 0, 0, 1, 8, 0, 0, 0, 1, 9},
                 {Status::Frame, Status::Frame},
                 {0, 1, 9}}),
    [](const auto& instance) { return std::string(instance.param.name); });

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

struct WriteCase
{
    const char* name;
    std::size_t length;
    std::size_t room;  // in the pipe at first
    int header;
    int payload;
    Bytes firstBytes;
};

class PipeFrameWriterCases : public testing::TestWithParam<WriteCase>
{
};

TEST_P(PipeFrameWriterCases, LeavesAWholeFrameOrNone)
{
    const WriteCase& row = GetParam();
    ScriptedStream stream;
    stream.room = row.room;
    PipeFrameWriter writer;
    std::ranges::copy(counting(row.length), writer.payload().begin());
    const PipeFrameWriter::Written written = writer.write(stream, row.length);
    EXPECT_EQ(written.header, row.header);
    EXPECT_EQ(written.payload, row.payload);
    EXPECT_EQ(writer.finish(stream), row.room == 0 || row.room >= row.length + 2);
    stream.room = 10'000;
    EXPECT_TRUE(writer.finish(stream));
    EXPECT_EQ(stream.outgoing, row.room == 0 ? Bytes{} : row.firstBytes + counting(row.length));
}

INSTANTIATE_TEST_SUITE_P(
    Writer, PipeFrameWriterCases,
    testing::Values(WriteCase{"TenBytesFollowALittleEndianTen", 10, 100, 2, 10, {0x0A, 0x00}},
                    WriteCase{"LengthIsLittleEndian", 4416, 10'000, 2, 4416, {0x40, 0x11}},
                    WriteCase{"AFullPipeTakesNothing", 10, 0, -1, -1, {}},
                    WriteCase{"ACutPayloadIsFinishedLater", 4416, 4096, 2, 4094, {0x40, 0x11}},
                    WriteCase{"ACutHeaderIsFinishedLater", 5000, 1, 1, 0, {0x88, 0x13}}),
    [](const auto& instance) { return std::string(instance.param.name); });
}  // namespace
