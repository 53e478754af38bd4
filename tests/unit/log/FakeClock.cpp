#include "FakeClock.h"

#include <atomic>
#include <ctime>

namespace {
// A start late in its second makes most elapsed times borrow one.
constexpr long long kStartNs = 77'900'000'999;
std::atomic<long long> elapsedNs = 0;
}  // namespace

extern "C" int __real_clock_gettime(clockid_t clock, timespec* time);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* time)
{
    if (clock != CLOCK_MONOTONIC_RAW)
        return __real_clock_gettime(clock, time);
    const long long now = kStartNs + elapsedNs;
    *time = {static_cast<time_t>(now / 1'000'000'000), static_cast<long>(now % 1'000'000'000)};
    return 0;
}

void setElapsed(long seconds, long microseconds)
{
    elapsedNs = seconds * 1'000'000'000LL + microseconds * 1000LL;
}
