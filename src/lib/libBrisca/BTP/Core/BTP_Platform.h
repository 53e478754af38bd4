#pragma once

// The clock, memory and error functions of the platform below BTP.

#include <cstddef>
#include <cstdint>

extern "C" {

/// A time of day or a time span.
struct GClock
{
    std::uint32_t seconds;
    std::uint32_t milliseconds;
};

/// Milliseconds that GClockSubTime adds when it borrows a second. It is 65536 times too much; whole seconds,
/// all that the transport looks at, are right.
constexpr std::uint32_t kGClockBorrowMs = 65'536'000;

/// Time of day. Any thread.
/// @return 1, or 0 with a line on standard output for a null pointer or a clock that cannot be read
int GClockGetTime(GClock* clock);
/// elapsed = now - start. A start that lies behind now, and a borrow from equal seconds, give 0 s and 0 ms.
/// @return 1, or 0 when there is no difference to give or, with a line on standard output, for a null pointer
int GClockSubTime(const GClock* now, const GClock* start, GClock* elapsed);
/// GClockGetTime.
int BTPGetTime(GClock* clock);
/// GClockSubTime.
int BTPSubTime(const GClock* now, const GClock* start, GClock* elapsed);

/// memcpy.
void* GMemCopy(void* destination, const void* source, std::size_t length);
/// memset.
void* GMemSet(void* destination, int value, std::size_t length);

/// Reports an exception on standard output.
void GEM_Catch(int component, int method, int line);

}  // extern "C"
