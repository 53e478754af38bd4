#include "BTP_Platform.h"

#include <sys/time.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

int GClockGetTime(GClock* clock)
{
    if (clock == nullptr) {
        std::printf("[GClockGetTime] null pointer");
        return 0;
    }
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        std::printf("[GClockGetTime] errno = %d\n", errno);
        return 0;
    }
    clock->seconds = static_cast<std::uint32_t>(now.tv_sec);
    clock->milliseconds = static_cast<std::uint32_t>(now.tv_usec / 1000);
    return 1;
}

int GClockSubTime(const GClock* now, const GClock* start, GClock* elapsed)
{
    if (now == nullptr || start == nullptr || elapsed == nullptr) {
        std::printf("[GClockSubTime] null pointer\n");
        return 0;
    }
    if (now->milliseconds >= start->milliseconds && now->seconds >= start->seconds) {
        *elapsed = {now->seconds - start->seconds, now->milliseconds - start->milliseconds};
        return 1;
    }
    if (now->milliseconds < start->milliseconds && now->seconds > start->seconds) {
        *elapsed = {now->seconds - start->seconds - 1,
                    now->milliseconds - start->milliseconds + kGClockBorrowMs};
        return 1;
    }
    *elapsed = {0, 0};
    return 0;
}

int BTPGetTime(GClock* clock)
{
    return GClockGetTime(clock);
}

int BTPSubTime(const GClock* now, const GClock* start, GClock* elapsed)
{
    return GClockSubTime(now, start, elapsed);
}

void* GMemCopy(void* destination, const void* source, std::size_t length)
{
    return std::memcpy(destination, source, length);
}

void* GMemSet(void* destination, int value, std::size_t length)
{
    return std::memset(destination, value, length);
}

void GEM_Catch(int component, int method, int line)
{
    std::printf("Stub : GEM_Catch ComponentId = %d MethodID = %d LineNb = %d\n", component, method, line);
}
