#pragma once

#include "gecko.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// The co-processor's line in memory, which the host uses while the object lives. A read of more than is
/// there fails instead of waiting, and with it the test, where the host could have looked.
class MemoryLine
{
public:
    MemoryLine()
    {
        bound = this;
        bglib_output = output;
        bglib_input = input;
        bglib_peek = peek;
    }
    ~MemoryLine()
    {
        bglib_output = nullptr;
        bglib_input = nullptr;
        bglib_peek = nullptr;
    }
    MemoryLine(const MemoryLine&) = delete;
    MemoryLine& operator=(const MemoryLine&) = delete;

    std::mutex mutex;  // guards the rest while other threads use the line
    std::string toHost;
    std::vector<std::string> toChip;
    bool broken = false;                                          // looking at the line fails
    std::function<std::string(const std::string& command)> chip;  // what the chip sends for a command

private:
    static std::int32_t output(std::uint32_t length, const std::uint8_t* bytes)
    {
        const std::lock_guard lock(bound->mutex);
        bound->toChip.emplace_back(bytes, bytes + length);
        if (bound->chip)
            bound->toHost += bound->chip(bound->toChip.back());
        return static_cast<std::int32_t>(length);
    }
    static std::int32_t input(std::uint32_t length, std::uint8_t* buffer)
    {
        const std::lock_guard lock(bound->mutex);
        const std::size_t count = std::min<std::size_t>(length, bound->toHost.size());
        std::copy_n(bound->toHost.begin(), count, buffer);
        bound->toHost.erase(0, count);
        EXPECT_TRUE(count == length || length == 1 || bglib_peek == nullptr) << "would wait in the kernel";
        return count == length ? static_cast<std::int32_t>(length) : -1;
    }
    static std::int32_t peek()
    {
        const std::lock_guard lock(bound->mutex);
        return bound->broken ? -1 : static_cast<std::int32_t>(bound->toHost.size());
    }

    static inline MemoryLine* bound = nullptr;
};
