// The timer wheel's clock, owned by a test: link own_clock.cc, and the wheel's time stands still until moved.
#pragma once

#include <cstdint>

inline constexpr int64_t OWN_CLOCK_MSEC = 1'000'000;  // nanoseconds

// Both in nanoseconds since the clock's start.
void own_clock_set(int64_t now);
int64_t own_clock_now();
inline void own_clock_advance(int64_t nsecs)
{
    own_clock_set(own_clock_now() + nsecs);
}
