#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

/// How far an upload is: written by its sender, read by any thread at any time. The figures of the last upload
/// stay until the next one begins.
struct UploadProgress
{
    using Clock = std::chrono::steady_clock;

    /// Starts the figures of a new upload; nobody may be sending.
    void begin(std::int64_t bytes)
    {
        fileBytes = bytes;
        acknowledgedBytes = 0;
        heard = Clock::now();
    }
    /// Time since the receiver's last byte, or since the begin.
    [[nodiscard]] std::chrono::milliseconds silence() const
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - heard.load());
    }

    std::atomic<std::int64_t> fileBytes{0};
    std::atomic<std::int64_t> acknowledgedBytes{0};
    std::atomic<Clock::time_point> heard{};
};
