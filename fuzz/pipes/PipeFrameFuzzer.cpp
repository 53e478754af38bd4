// Drives both ends of the bridge's pipes: the reader with an application that writes anything in any pieces,
// the writer with a pipe that takes any part of a frame.
//
// Input: repeated [count][count bytes]; the bytes arrive before the next poll, and count is also the room
// that the pipe to the application gains. Before the bytes of a count of 255 the link ends.

#include "PipeFrame.h"
#include "support/Require.h"

#include <algorithm>
#include <vector>

namespace {
using Bytes = std::vector<std::uint8_t>;

class FuzzedStream : public ByteStreamI
{
public:
    ssize_t read(std::span<std::uint8_t> buffer) override
    {
        const std::size_t count = std::min(buffer.size(), arrived - taken);
        std::copy_n(incoming.begin() + static_cast<long>(taken), count, buffer.begin());
        taken += count;
        return count == 0 ? -1 : static_cast<ssize_t>(count);
    }
    ssize_t write(std::span<const std::uint8_t> bytes) override
    {
        const std::size_t count = std::min(bytes.size(), room);
        room -= count;
        outgoing.insert(outgoing.end(), bytes.begin(), bytes.begin() + static_cast<long>(count));
        return count == 0 ? -1 : static_cast<ssize_t>(count);
    }

    Bytes incoming;
    Bytes outgoing;
    std::size_t arrived = 0;
    std::size_t taken = 0;
    std::size_t disowned = 0;  // how much had arrived when the link ended
    std::size_t room = 0;
};

/// What the reader reports is what lay in the pipe, in its place.
void checkRead(PipeFrameReader& reader, FuzzedStream& stream)
{
    const PipeFrameReader::Status status = reader.poll(stream, true);
    if (status == PipeFrameReader::Status::Nothing)
        return;
    if (status == PipeFrameReader::Status::Dropped) {
        require(stream.disowned > 0);
        return;
    }
    const bool valid = reader.length() >= 1 && reader.length() <= kMaxAnswerSize;
    require(valid == (status != PipeFrameReader::Status::InvalidLength));
    const std::size_t behindHeader =
        status == PipeFrameReader::Status::Frame ? reader.message().size() - kAnswerLengthSize : 0;
    require(behindHeader <= reader.length());
    const auto place =
        stream.incoming.begin() + static_cast<long>(stream.taken - behindHeader - kAnswerHeaderSize);
    require(std::ranges::equal(reader.header(), std::span(place, kAnswerHeaderSize)));
    if (valid)
        require(place >= stream.incoming.begin() + static_cast<long>(stream.disowned));
    if (status == PipeFrameReader::Status::Frame)
        require(std::ranges::equal(reader.message(),
                                   std::span(place + kAnswerLengthOffset, kAnswerLengthSize + behindHeader)));
}

void checkWrite(PipeFrameWriter& writer, FuzzedStream& stream, std::size_t length)
{
    if (!writer.finish(stream))
        return;
    std::fill_n(writer.payload().begin(), length, static_cast<std::uint8_t>(length));
    writer.write(stream, length);
}

/// The application finds whole frames, whatever the pipe did.
void checkOutgoing(const Bytes& bytes)
{
    std::size_t offset = 0;
    while (offset < bytes.size()) {
        const std::size_t length = static_cast<std::size_t>(bytes.at(offset)) | bytes.at(offset + 1) << 8U;
        for (std::size_t index = 0; index < length; ++index)
            require(bytes.at(offset + kRequestHeaderSize + index) == static_cast<std::uint8_t>(length));
        offset += kRequestHeaderSize + length;
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static PipeFrameReader reader;
    static PipeFrameWriter writer;
    reader.reset();
    writer.reset();
    FuzzedStream stream;
    stream.incoming.assign(data, data + size);
    std::size_t next = 0;
    while (next < size) {
        // Counts are taken out of the stream of bytes so that it stays in one piece.
        const std::size_t count = data[next];
        stream.incoming.erase(stream.incoming.begin() + static_cast<long>(stream.arrived));
        if (count == 255) {
            reader.disown(stream.arrived - stream.taken);
            stream.disowned = stream.arrived;
        }
        stream.arrived = std::min(stream.arrived + count, stream.incoming.size());
        next += 1 + count;
        stream.room += count;
        checkRead(reader, stream);
        checkWrite(writer, stream, count * 20);
    }
    stream.room = 2 * (kRequestHeaderSize + kRequestBufferSize);
    require(writer.finish(stream));
    checkOutgoing(stream.outgoing);
    return 0;
}
