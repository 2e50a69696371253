// The machine's clocks. There is one time-stamp counter here, and all kinds of clock read it.
#pragma once

#include <cstdint>

enum cvmx_clock_t : uint32_t {
    CVMX_CLOCK_RCLK = 0,
    CVMX_CLOCK_CORE = 1,
    CVMX_CLOCK_SCLK = 2,
    CVMX_CLOCK_DDR = 3,
    CVMX_CLOCK_TIM = 4,
};

// The time-stamp counter, in ticks.
uint64_t cvmx_clock_get_count(cvmx_clock_t clock);
uint64_t cvmx_get_cycle();

// Ticks of a second, from the first "cpu MHz" line of /proc/cpuinfo and then kept. 0 when there is no such
// line or file; that is not kept, so the next call looks again. Main thread only.
uint64_t cvmx_clock_get_rate(cvmx_clock_t clock);
