#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>

/// How far an upload is: written by its sender, read by any thread at any time. The figures of the last
/// upload stay until the next one begins.
struct UploadProgress
{
    using Clock = std::chrono::steady_clock;
    static constexpr std::int64_t kBlockBytes = 128;

    /// Blocks that the receiver has to acknowledge.
    [[nodiscard]] std::int64_t blocks() const { return (fileBytes + kBlockBytes - 1) / kBlockBytes; }
    /// The block that is being sent, from 1; the last one when all are acknowledged.
    [[nodiscard]] std::int64_t block() const
    {
        return std::min(acknowledgedBytes / kBlockBytes + 1, blocks());
    }
    /// Starts the figures of a new upload; nobody may be sending.
    void begin(std::int64_t bytes)
    {
        fileBytes = bytes;
        acknowledgedBytes = 0;
        repeats = 0;
        heard = Clock::now();
    }
    /// Time since the receiver's last byte, or since the begin.
    [[nodiscard]] std::chrono::milliseconds silence() const
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - heard.load());
    }

    std::atomic<std::int64_t> fileBytes{0};
    std::atomic<std::int64_t> acknowledgedBytes{0};
    std::atomic<int> repeats{0};  // how often the block behind those bytes has been sent again
    std::atomic<int> result{0};   // of the last sender that has ended, see xymodem_send()
    std::atomic<Clock::time_point> heard{};
};
